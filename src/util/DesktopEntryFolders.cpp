#include "util/DesktopEntryFolders.h"

#include <algorithm>

#include "util/DesktopEntry.h"
#include "util/PathName.h"
#include "util/XdgDirs.h"

namespace vexa {

std::vector<std::string> DesktopEntryFolders::all() {
  std::vector<std::string> candidates{XdgDirs::dataHome() + "/applications"};
  for (const auto& dir : XdgDirs::dataDirs()) candidates.push_back(dir + "/applications");
  for (const auto& share : exportedShareFolders()) candidates.push_back(share + "/applications");
  std::vector<std::string> folders;
  for (auto& candidate : candidates) {
    std::string folder = PathName::withoutTrailingSlashes(std::move(candidate));
    if (PathName::isFolder(folder) &&
        std::find(folders.begin(), folders.end(), folder) == folders.end()) {
      folders.push_back(std::move(folder));
    }
  }
  return folders;
}

std::vector<std::string> DesktopEntryFolders::exportedShareFolders() {
  return {XdgDirs::dataHome() + "/flatpak/exports/share", "/var/lib/flatpak/exports/share",
          "/var/lib/snapd/desktop"};
}

std::string DesktopEntryFolders::fileIdOf(const std::string& path) {
  for (const auto& folder : all()) {
    if (PathName::isWithin(path, folder) && PathName::withoutTrailingSlashes(path) != folder) {
      return DesktopEntry::desktopFileId(path, folder);
    }
  }
  return PathName::lastComponent(path);
}

}  // namespace vexa
