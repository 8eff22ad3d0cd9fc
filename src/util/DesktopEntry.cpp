#include "util/DesktopEntry.h"

#include <algorithm>

#include "util/PathName.h"
#include "vexa/util/Preferences.h"

namespace vexa {

namespace {

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
    s.remove_suffix(1);
  return s;
}

std::string unescape(std::string_view raw) {
  std::string out;
  for (size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] != '\\' || i + 1 == raw.size()) {
      out += raw[i];
      continue;
    }
    switch (raw[++i]) {
      case 's':
        out += ' ';
        break;
      case 'n':
        out += '\n';
        break;
      case 't':
        out += '\t';
        break;
      case 'r':
        out += '\r';
        break;
      case '\\':
        out += '\\';
        break;
      default:
        out += '\\';
        out += raw[i];
    }
  }
  return out;
}

}  // namespace

std::optional<DesktopEntry> DesktopEntry::parse(std::string_view text) {
  DesktopEntry entry;
  bool inGroup = false, seen = false;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view line = trim(text.substr(start, end - start));
    start = end + 1;
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '[') {
      inGroup = line == "[Desktop Entry]";
      seen = seen || inGroup;
      continue;
    }
    if (!inGroup) continue;
    const size_t eq = line.find('=');
    if (eq == std::string_view::npos || eq == 0) continue;
    const std::string key(trim(line.substr(0, eq)));
    entry.raw_.emplace(key, std::string(trim(line.substr(eq + 1))));
  }
  if (!seen) return std::nullopt;
  return entry;
}

std::optional<std::string> DesktopEntry::value(const std::string& key) const {
  auto it = raw_.find(key);
  if (it == raw_.end()) return std::nullopt;
  return unescape(it->second);
}

std::optional<std::string> DesktopEntry::localized(
    const std::string& key, const std::vector<std::string>& languages) const {
  for (std::string language : languages) {
    for (char& c : language) {
      if (c == '-') c = '_';
    }
    const std::string base = language.substr(0, language.find_first_of(".@"));
    for (const std::string& tag : {base, base.substr(0, base.find('_'))}) {
      std::string localized = key;
      localized += '[';
      localized += tag;
      localized += ']';
      if (auto v = value(localized)) return v;
    }
  }
  return value(key);
}

std::vector<std::string> DesktopEntry::execArguments() const {
  std::vector<std::string> args;
  auto exec = value("Exec");
  if (!exec) return args;
  std::string current;
  bool inQuotes = false, hasArgument = false;
  const std::string& s = *exec;
  for (size_t i = 0; i < s.size(); ++i) {
    const char c = s[i];
    if (inQuotes) {
      if (c == '\\' && i + 1 < s.size() &&
          std::string_view("\"`$\\").find(s[i + 1]) != std::string_view::npos) {
        current += s[++i];
      } else if (c == '"') {
        inQuotes = false;
      } else {
        current += c;
      }
      continue;
    }
    if (c == '"') {
      inQuotes = true;
      hasArgument = true;
    } else if (c == ' ' || c == '\t') {
      if (hasArgument) args.push_back(current);
      current.clear();
      hasArgument = false;
    } else if (c == '%' && i + 1 < s.size()) {
      if (s[++i] == '%') {
        current += '%';
        hasArgument = true;
      }  // any other field code is dropped
    } else {
      current += c;
      hasArgument = true;
    }
  }
  if (hasArgument) args.push_back(current);
  return args;
}

std::optional<std::string> DesktopEntry::executable() const {
  if (auto tryExec = value("TryExec"); tryExec && !tryExec->empty()) return tryExec;
  auto args = execArguments();
  if (args.empty()) return std::nullopt;
  return args.front();
}

std::string DesktopEntry::desktopFileId(const std::string& path,
                                        const std::string& applicationsFolder) {
  const std::string folder = PathName::withoutTrailingSlashes(applicationsFolder);
  std::string relative = path;
  if (PathName::hasPrefix(path, folder + "/")) relative = path.substr(folder.size() + 1);
  for (char& c : relative) {
    if (c == '/') c = '-';
  }
  return relative;
}

std::vector<std::string> DesktopEntry::userLocales() {
  std::vector<std::string> locales = Preferences::preferredLanguages();
  for (auto& locale : locales) std::replace(locale.begin(), locale.end(), '-', '_');
  return locales;
}

}  // namespace vexa
