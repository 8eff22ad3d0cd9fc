#include "util/linux/XdgAutostart.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>

#include "util/AtomicFile.h"
#include "util/PathName.h"
#include "util/ProgramPath.h"
#include "util/XdgDirs.h"
#include "vexa/util/AppIdentity.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

namespace {

constexpr std::size_t kEntryLimit = std::size_t{64} << 10;
constexpr int kNameAttempts = 100;
constexpr const char* kSuffix = ".desktop";

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::stringstream in(text);
  std::string part;
  while (std::getline(in, part, separator)) {
    if (!part.empty()) parts.push_back(part);
  }
  return parts;
}

std::optional<std::string> realPath(const std::string& path) {
  char resolved[PATH_MAX];
  if (!::realpath(path.c_str(), resolved)) return std::nullopt;
  return std::string(resolved);
}

// The application's name as a file name: letters, digits, '.', '_' and '-' only.
std::string fileStem(const std::string& name) {
  std::string stem;
  for (const char c : name) {
    const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                       c == '.' || c == '_' || c == '-';
    if (plain) stem += c;
  }
  while (!stem.empty() && stem.front() == '.') stem.erase(stem.begin());
  return stem.empty() ? std::string("application") : stem;
}

bool endsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// A string value's escapes: "\\" for a backslash (the others cannot occur in what we write).
std::string escapedValue(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '\\') out += '\\';
    out += c;
  }
  return out;
}

}  // namespace

std::unique_ptr<LoginItems> LoginItems::system() { return XdgAutostart::fromEnvironment(); }

XdgAutostart::XdgAutostart(std::string userFolder, std::vector<std::string> systemFolders,
                           std::string name, const std::string& desktops)
    : userFolder_(std::move(userFolder)),
      systemFolders_(std::move(systemFolders)),
      name_(std::move(name)),
      desktops_(split(desktops, ':')) {}

std::unique_ptr<XdgAutostart> XdgAutostart::fromEnvironment() {
  std::vector<std::string> system;
  for (const auto& dir : XdgDirs::configDirs()) system.push_back(dir + "/autostart");
  const char* desktops = std::getenv("XDG_CURRENT_DESKTOP");
  return std::make_unique<XdgAutostart>(XdgDirs::configHome() + "/autostart", std::move(system),
                                        AppIdentity::name(), desktops ? desktops : "");
}

bool XdgAutostart::available() {
  // Missing: made on the first append. Anything there that is not a folder (a file, a dangling
  // link) is the user's business and is left alone.
  struct stat st {};
  if (::lstat(userFolder_.c_str(), &st) != 0) return errno == ENOENT;
  return PathName::isFolder(userFolder_);
}

std::optional<DesktopEntry> XdgAutostart::read(const std::string& file) {
  // Checked before opening: a FIFO must not hold the caller up.
  if (!PathName::isRegularFile(file)) return std::nullopt;
  auto text = AtomicFile::read(file, kEntryLimit);
  if (!text) return std::nullopt;
  return DesktopEntry::parse(*text);
}

std::optional<std::string> XdgAutostart::program(const DesktopEntry& entry) {
  const auto arguments = entry.execArguments();
  if (arguments.empty() || arguments.front().empty()) return std::nullopt;
  const std::string& first = arguments.front();
  const auto found = first.find('/') == std::string::npos ? ProgramPath::find(first)
                                                          : std::optional<std::string>(first);
  return found ? realPath(*found) : std::nullopt;
}

bool XdgAutostart::inEffect(const DesktopEntry& entry) const {
  if (entry.isHidden() || entry.value("X-GNOME-Autostart-enabled") == "false") return false;
  const auto shownIn = [&](const std::string& key) {
    const auto value = entry.value(key);
    if (!value) return false;
    const auto listed = split(*value, ';');
    return std::any_of(desktops_.begin(), desktops_.end(), [&](const std::string& desktop) {
      return std::find(listed.begin(), listed.end(), desktop) != listed.end();
    });
  };
  if (entry.value("OnlyShowIn") && !shownIn("OnlyShowIn")) return false;
  if (shownIn("NotShowIn")) return false;
  if (const auto tryExec = entry.value("TryExec")) {
    if (tryExec->empty() || !ProgramPath::find(*tryExec)) return false;
  }
  return true;
}

std::vector<LoginItems::Item> XdgAutostart::list() {
  std::vector<Item> items;
  std::set<std::string> seen;
  std::vector<std::string> folders{userFolder_};
  folders.insert(folders.end(), systemFolders_.begin(), systemFolders_.end());
  for (const auto& folder : folders) {
    std::error_code ec;
    std::vector<std::string> names;
    for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end;
         it.increment(ec)) {
      std::string name = it->path().filename().string();
      if (endsWith(name, kSuffix)) names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    for (const auto& name : names) {
      if (!seen.insert(name).second) continue;  // shadowed by an earlier folder's file
      std::string file = folder;
      file.append("/").append(name);
      const auto entry = read(file);
      if (!entry || !inEffect(*entry)) continue;
      if (auto path = program(*entry)) items.push_back({name, std::move(*path)});
    }
  }
  return items;
}

std::optional<std::string> XdgAutostart::execValue(const std::string& path) {
  if (path.empty() || !MonitorString::cstringToString(path.c_str())) return std::nullopt;
  for (const char c : path) {
    if (c == '%' || c == '\\' || static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
      return std::nullopt;
    }
  }
  std::string quoted = "\"";
  for (const char c : path) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
    quoted += c;
  }
  quoted += '"';
  return escapedValue(quoted);
}

bool XdgAutostart::writeEntry(const std::string& file, const std::string& path, bool hidden) const {
  // A hidden file needs no program; it names it when it can, so that it is known as ours.
  const auto exec = execValue(path);
  if (!exec && !hidden) return false;
  std::string text = "[Desktop Entry]\nType=Application\nName=" + escapedValue(name_) + "\n";
  if (exec) text += "Exec=" + *exec + "\n";
  text += hidden ? "Hidden=true\n" : "X-GNOME-Autostart-enabled=true\n";
  return AtomicFile::createFolders(userFolder_) && !AtomicFile::write(file, text);
}

bool XdgAutostart::nameIsOurs(const std::string& name, const std::string& path) const {
  // The first file of the name, the user's before the system's, is the one in effect. Ours when
  // it starts this program, even disabled or hidden: it is turned back on rather than joined by
  // a second file. Another program's file (or one we cannot read) keeps its name: a user file
  // written over a system one would take that out of effect.
  std::vector<std::string> folders{userFolder_};
  folders.insert(folders.end(), systemFolders_.begin(), systemFolders_.end());
  for (const auto& folder : folders) {
    std::string file = folder;
    file += '/';
    file += name;
    struct stat st {};
    if (::lstat(file.c_str(), &st) != 0) continue;
    const auto entry = read(file);
    return entry && program(*entry) == path;
  }
  return true;  // free everywhere
}

void XdgAutostart::append(const std::string& path) {
  if (!execValue(path)) return;
  const std::string stem = fileStem(name_);
  for (int attempt = 1; attempt <= kNameAttempts; ++attempt) {
    const std::string name = stem + (attempt == 1 ? "" : "-" + std::to_string(attempt)) + kSuffix;
    if (!nameIsOurs(name, path)) continue;
    writeEntry(userFolder_ + "/" + name, path, false);
    return;
  }
}

void XdgAutostart::remove(const Item& item) {
  if (item.handle.find('/') != std::string::npos) return;
  const std::string file = userFolder_ + "/" + item.handle;
  struct stat st {};
  if (::lstat(file.c_str(), &st) == 0) {
    if (!S_ISREG(st.st_mode) && !S_ISLNK(st.st_mode)) return;
    if (::unlink(file.c_str()) != 0) return;
  }
  // A system file of the same name now shows through: when it starts the same program, a user
  // file saying Hidden=true takes it out of effect. Another program's entry is left alone.
  for (const auto& folder : systemFolders_) {
    const std::string system = folder + "/" + item.handle;
    if (::lstat(system.c_str(), &st) != 0) continue;
    const auto entry = read(system);
    if (entry && inEffect(*entry) && program(*entry) == item.path) {
      writeEntry(file, item.path, true);
    }
    return;  // the first system file of a name is the one that counts
  }
}

}  // namespace vexa
