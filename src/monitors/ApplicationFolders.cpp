#include "monitors/ApplicationFolders.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "monitors/AppBundle.h"
#include "monitors/AppImageBundle.h"
#include "monitors/DesktopAppBundle.h"
#include "util/DesktopEntryFolders.h"
#include "util/PathName.h"
#include "util/XdgDirs.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

namespace {

constexpr int kBundleDepth = 3;

void addFolder(std::vector<std::string>& list, const std::string& path) {
  std::string folder = PathName::withoutTrailingSlashes(path);
  if (!PathName::isFolder(folder)) return;
  if (std::find(list.begin(), list.end(), folder) == list.end()) list.push_back(std::move(folder));
}

bool hasBundleSuffix(const std::string& path) {
  return path.size() > 4 && path.compare(path.size() - 4, 4, ".app") == 0;
}

// A link to a folder is never searched (it could lead back up the tree); a link to a bundle
// counts as the bundle.
void findBundles(const std::filesystem::path& folder, int depth, std::vector<std::string>& out) {
  std::error_code ec;
  for (const auto& item : std::filesystem::directory_iterator(folder, ec)) {
    const std::string path = item.path().string();
    std::error_code typeError;
    const bool directory = item.is_directory(typeError);
    const bool found = directory ? hasBundleSuffix(path) : AppImageBundle::hasMark(path);
    if (found) {
      out.push_back(path);
    } else if (directory && !item.is_symlink(typeError) && depth > 1) {
      findBundles(item.path(), depth - 1, out);
    }
  }
}

}  // namespace

std::vector<std::string> ApplicationFolders::allApplications() {
  std::vector<std::string> paths;
  for (const auto& folder : bundleFolders()) findBundles(folder, kBundleDepth, paths);
  std::set<std::string> seenIds;
  for (const auto& folder : DesktopEntryFolders::all()) {
    std::error_code ec;
    std::vector<std::string> entries;
    for (auto it = std::filesystem::recursive_directory_iterator(folder, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
      const std::string path = it->path().string();
      if (DesktopAppBundle::hasEntryName(path)) entries.push_back(path);
    }
    std::sort(entries.begin(), entries.end());
    for (auto& path : entries) {
      if (seenIds.insert(DesktopEntry::desktopFileId(path, folder)).second) {
        paths.push_back(std::move(path));
      }
    }
  }
  return paths;
}

std::optional<std::string> ApplicationFolders::pathForIdentifier(const std::string& identifier) {
  if (identifier.empty()) return std::nullopt;
  for (const auto& path : allApplications()) {
    auto bundle = AppBundle::open(path);
    if (bundle && bundle->infoString("CFBundleIdentifier") == identifier) return path;
  }
  return std::nullopt;
}

std::vector<std::string> ApplicationFolders::watchedFolders() {
  std::vector<std::string> candidates{MonitorString::userHomePath()};
  if (auto system = MonitorString::applicationPath()) candidates.push_back(*system);
  if (auto user = MonitorString::userApplicationPath()) candidates.push_back(*user);
  std::vector<std::string> folders;
  for (const auto& path : candidates) {
    const bool nested = std::any_of(candidates.begin(), candidates.end(), [&](const auto& other) {
      return PathName::withoutTrailingSlashes(other) != PathName::withoutTrailingSlashes(path) &&
             PathName::isWithin(path, other);
    });
    if (!nested && std::find(folders.begin(), folders.end(), path) == folders.end()) {
      folders.push_back(path);
    }
  }
  return folders;
}

std::vector<std::string> ApplicationFolders::bundleFolders() {
  std::vector<std::string> folders;
  if (auto system = MonitorString::applicationPath()) addFolder(folders, *system);
  if (auto user = MonitorString::userApplicationPath()) addFolder(folders, *user);
  addFolder(folders, XdgDirs::home() + "/Applications");
  return folders;
}

}  // namespace vexa
