#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vexa {

// Where applications live on this machine.
class ApplicationFolders {
 public:
  // The folders that hold application bundles and AppImages: the system and the user's
  // applications folders and ~/Applications, those that exist, without repeats.
  static std::vector<std::string> bundleFolders();
  // Every application path: ".app" bundles and AppImages in the bundle folders (searched a few
  // levels deep, never inside a bundle), and every desktop entry of the desktop entry folders
  // (DesktopEntryFolders) by desktop file id, the first folder's entry winning as the desktop
  // menu rules say. Whether each really is an application is left to the reader (a Hidden entry
  // still shadows its id).
  static std::vector<std::string> allApplications();
  // The path of the application (of allApplications) whose identifier is `identifier`.
  static std::optional<std::string> pathForIdentifier(const std::string& identifier);
  // The folders an application monitor watches: the home folder and both applications folders,
  // without one that lies in another (its events come through the outer one, and must come
  // once).
  static std::vector<std::string> watchedFolders();
};

}  // namespace vexa
