#pragma once

#include <string>
#include <vector>

namespace vexa {

// Where applications live on this machine.
class ApplicationFolders {
 public:
  // The folders that hold application bundles and AppImages: the system and the user's
  // applications folders and ~/Applications, those that exist, without repeats.
  static std::vector<std::string> bundleFolders();
  // Every "applications" folder of desktop entries, highest precedence first: $XDG_DATA_HOME,
  // each of $XDG_DATA_DIRS, then the Flatpak and Snap export folders not already listed. Only
  // those that exist.
  static std::vector<std::string> desktopEntryFolders();
  // Every application path: ".app" bundles and AppImages in the bundle folders (searched a few
  // levels deep, never inside a bundle), and every desktop entry of the desktop entry folders
  // by desktop file id, the first folder's entry winning as the desktop menu rules say. Whether
  // each really is an application is left to the reader (a Hidden entry still shadows its id).
  static std::vector<std::string> allApplications();
  // The "share" folders that Flatpak and Snap export applications and icons into.
  static std::vector<std::string> exportedShareFolders();
};

}  // namespace vexa
