#include "monitors/PackageMetadata.h"

#include <charconv>

namespace vexa {

namespace {

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
    s.remove_suffix(1);
  }
  return s;
}

// Calls `line` with each line of `text`, without its newline.
template <typename Fn>
void forEachLine(std::string_view text, Fn&& line) {
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    line(text.substr(start, end - start));
    start = end + 1;
  }
}

std::optional<uint64_t> number(std::string_view text) {
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) {
    return std::nullopt;
  }
  return value;
}

std::string_view unquote(std::string_view s) {
  if (s.size() >= 2 && (s.front() == '"' || s.front() == '\'') && s.back() == s.front()) {
    s = s.substr(1, s.size() - 2);
  }
  return s;
}

}  // namespace

std::vector<PackageMetadata::DpkgPackage> PackageMetadata::parseDpkgStatus(std::string_view text) {
  std::vector<DpkgPackage> installed;
  DpkgPackage current;
  bool isInstalled = false;
  auto finish = [&] {
    if (isInstalled && !current.name.empty()) installed.push_back(std::move(current));
    current = DpkgPackage{};
    isInstalled = false;
  };
  forEachLine(text, [&](std::string_view line) {
    if (trim(line).empty()) return finish();
    if (line.front() == ' ' || line.front() == '\t') return;  // a continuation
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) return;
    const std::string_view field = line.substr(0, colon);
    const std::string_view value = trim(line.substr(colon + 1));
    if (field == "Package") {
      current.name = value;
    } else if (field == "Architecture") {
      current.architecture = value;
    } else if (field == "Version" && !value.empty()) {
      current.version = std::string(value);
    } else if (field == "Installed-Size") {
      current.installedKiB = number(value);
    } else if (field == "Status") {
      isInstalled = value == "install ok installed";
    }
  });
  finish();
  return installed;
}

std::vector<std::string_view> PackageMetadata::listedPaths(std::string_view text) {
  std::vector<std::string_view> paths;
  forEachLine(text, [&](std::string_view line) {
    if (!line.empty() && line.front() == '/') paths.push_back(line);
  });
  return paths;
}

std::string PackageMetadata::upstreamVersion(std::string_view version) {
  const size_t colon = version.find(':');
  if (colon != std::string_view::npos) version.remove_prefix(colon + 1);
  const size_t dash = version.rfind('-');
  if (dash != std::string_view::npos && dash > 0) version = version.substr(0, dash);
  return std::string(version);
}

std::optional<std::string> PackageMetadata::firstReleaseVersion(std::string_view xml) {
  size_t at = 0;
  while ((at = xml.find("<release", at)) != std::string_view::npos) {
    at += 8;
    // "<releases>" opens the list; only a "<release" followed by a space starts an element.
    if (at >= xml.size() || (xml[at] != ' ' && xml[at] != '\t' && xml[at] != '\n')) continue;
    const size_t close = xml.find('>', at);
    const std::string_view tag = xml.substr(at, close == std::string_view::npos ? 0 : close - at);
    for (size_t key = tag.find("version"); key != std::string_view::npos;
         key = tag.find("version", key + 7)) {
      // Not the tail of another attribute ("xversion").
      if (key > 0 && tag[key - 1] != ' ' && tag[key - 1] != '\t' && tag[key - 1] != '\n') continue;
      std::string_view rest = trim(tag.substr(key + 7));
      if (rest.empty() || rest.front() != '=') continue;
      rest = trim(rest.substr(1));
      if (rest.empty() || (rest.front() != '"' && rest.front() != '\'')) continue;
      const size_t end = rest.find(rest.front(), 1);
      if (end == std::string_view::npos || end == 1) continue;
      return std::string(rest.substr(1, end - 1));
    }
    return std::nullopt;
  }
  return std::nullopt;
}

std::optional<std::string> PackageMetadata::snapVersion(std::string_view yaml) {
  std::optional<std::string> version;
  forEachLine(yaml, [&](std::string_view line) {
    if (version || line.substr(0, 8) != "version:") return;
    std::string_view value = trim(line.substr(8));
    const size_t comment = value.find(" #");
    if (comment != std::string_view::npos) value = trim(value.substr(0, comment));
    value = unquote(value);
    if (!value.empty()) version = std::string(value);
  });
  return version;
}

}  // namespace vexa
