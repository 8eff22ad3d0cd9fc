#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexa {

// The XDG base and user folders, read from the environment on every call so that a process (or
// a test) that changes HOME or XDG_* sees the change at once.
class XdgDirs {
 public:
  static std::string home();                     // $HOME, else the password database, else "/"
  static std::string dataHome();                 // $XDG_DATA_HOME or ~/.local/share
  static std::string configHome();               // $XDG_CONFIG_HOME or ~/.config
  static std::string cacheHome();                // $XDG_CACHE_HOME or ~/.cache
  static std::vector<std::string> dataDirs();    // $XDG_DATA_DIRS or /usr/local/share:/usr/share
  static std::vector<std::string> configDirs();  // $XDG_CONFIG_DIRS or /etc/xdg

  // A user folder from user-dirs.dirs ("DESKTOP", "DOWNLOAD", "DOCUMENTS", "MUSIC", "PICTURES",
  // "VIDEOS", ...); the usual default under home when the file does not name it.
  static std::string userDir(const std::string& kind);

  // Parses user-dirs.dirs text: XDG_<KIND>_DIR="$HOME/sub" or an absolute path; other lines and
  // relative paths are skipped. Keys are the kinds without prefix and suffix.
  static std::map<std::string, std::string> parseUserDirs(std::string_view text,
                                                          const std::string& home);
};

}  // namespace vexa
