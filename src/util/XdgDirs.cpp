#include "util/XdgDirs.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "util/AtomicFile.h"
#include "util/PathName.h"

namespace vexa {

namespace {

// An XDG variable counts only when set to an absolute path, as the base-directory rules say.
std::optional<std::string> absoluteEnv(const char* name) {
  const char* value = std::getenv(name);
  if (value && value[0] == '/') return std::string(value);
  return std::nullopt;
}

// A colon-separated list of absolute folders from the environment, else the default list.
std::vector<std::string> folderList(const char* variable, const char* fallback) {
  const char* value = std::getenv(variable);
  std::string list = value && *value ? value : fallback;
  std::vector<std::string> dirs;
  std::stringstream in(list);
  std::string item;
  while (std::getline(in, item, ':')) {
    if (!item.empty() && item[0] == '/') dirs.push_back(item);
  }
  return dirs;
}

}  // namespace

std::string XdgDirs::home() {
  if (const char* h = std::getenv("HOME"); h && *h) return h;
  struct passwd entry {};
  struct passwd* found = nullptr;
  char buffer[4096];
  if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found && found->pw_dir) {
    return found->pw_dir;
  }
  return "/";
}

std::string XdgDirs::dataHome() {
  return absoluteEnv("XDG_DATA_HOME").value_or(home() + "/.local/share");
}

std::string XdgDirs::configHome() {
  return absoluteEnv("XDG_CONFIG_HOME").value_or(home() + "/.config");
}

std::string XdgDirs::cacheHome() {
  return absoluteEnv("XDG_CACHE_HOME").value_or(home() + "/.cache");
}

std::vector<std::string> XdgDirs::dataDirs() {
  return folderList("XDG_DATA_DIRS", "/usr/local/share:/usr/share");
}

std::vector<std::string> XdgDirs::configDirs() { return folderList("XDG_CONFIG_DIRS", "/etc/xdg"); }

std::map<std::string, std::string> XdgDirs::parseUserDirs(std::string_view text,
                                                          const std::string& home) {
  std::map<std::string, std::string> dirs;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(start, end - start);
    start = end + 1;
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    if (!line.starts_with("XDG_")) continue;
    const size_t eq = line.find('=');
    if (eq == std::string_view::npos) continue;
    std::string_view key = line.substr(4, eq - 4);
    if (!key.ends_with("_DIR")) continue;
    key.remove_suffix(4);
    std::string_view value = line.substr(eq + 1);
    if (value.size() < 2 || value.front() != '"') continue;
    const size_t close = value.find('"', 1);
    if (close == std::string_view::npos) continue;
    value = value.substr(1, close - 1);
    std::string path;
    if (value.starts_with("$HOME")) {
      path = home + std::string(value.substr(5));
    } else if (value.starts_with("/")) {
      path = std::string(value);
    } else {
      continue;
    }
    dirs[std::string(key)] = PathName::withoutTrailingSlashes(std::move(path));
  }
  return dirs;
}

std::string XdgDirs::userDir(const std::string& kind) {
  const std::string h = home();
  if (auto text = AtomicFile::read(configHome() + "/user-dirs.dirs", 1 << 20)) {
    auto dirs = parseUserDirs(*text, h);
    if (auto it = dirs.find(kind); it != dirs.end()) return it->second;
  }
  static const std::map<std::string, std::string> defaults = {
      {"DESKTOP", "Desktop"},     {"DOWNLOAD", "Downloads"}, {"DOCUMENTS", "Documents"},
      {"MUSIC", "Music"},         {"PICTURES", "Pictures"},  {"VIDEOS", "Videos"},
      {"TEMPLATES", "Templates"}, {"PUBLICSHARE", "Public"}};
  auto it = defaults.find(kind);
  return it == defaults.end() ? h : h + "/" + it->second;
}

}  // namespace vexa
