#pragma once

#include <string>
#include <vector>

namespace vexa {

// The XDG folders of desktop entries, read from the environment on every call.
class DesktopEntryFolders {
 public:
  // Every "applications" folder of desktop entries, highest precedence first: $XDG_DATA_HOME,
  // each of $XDG_DATA_DIRS, then the Flatpak and Snap export folders not already listed. Only
  // those that exist (links followed), without trailing slashes or repeats.
  static std::vector<std::string> all();
  // The "share" folders that Flatpak and Snap export applications and icons into.
  static std::vector<std::string> exportedShareFolders();
  // The desktop file id of the entry at `path`: relative to the first folder of all() that holds
  // it, else its file name.
  static std::string fileIdOf(const std::string& path);
};

}  // namespace vexa
