#include "monitors/ApplicationFolders.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "monitors/AppImageBundle.h"
#include "monitors/DesktopAppBundle.h"
#include "util/XdgDirs.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

namespace {

bool isFolder(const std::string& path) {
  std::error_code ec;
  return std::filesystem::is_directory(path, ec);
}

void addFolder(std::vector<std::string>& list, std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  if (path.empty() || !isFolder(path)) return;
  if (std::find(list.begin(), list.end(), path) == list.end()) list.push_back(std::move(path));
}

constexpr int kBundleDepth = 3;

bool endsWith(const std::string& s, const std::string& suffix) {
  return s.size() > suffix.size() &&
         s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

void findBundles(const std::filesystem::path& folder, int depth, std::vector<std::string>& out) {
  std::error_code ec;
  for (const auto& item : std::filesystem::directory_iterator(folder, ec)) {
    const std::string path = item.path().string();
    std::error_code typeError;
    const bool directory = item.is_directory(typeError);
    if (directory && endsWith(path, ".app")) {
      out.push_back(path);
    } else if (directory && !item.is_symlink(typeError) && depth > 1) {
      findBundles(item.path(), depth - 1, out);
    } else if (!directory && AppImageBundle::hasMark(path)) {
      out.push_back(path);
    }
  }
}

}  // namespace

std::vector<std::string> ApplicationFolders::allApplications() {
  std::vector<std::string> paths;
  for (const auto& folder : bundleFolders()) findBundles(folder, kBundleDepth, paths);
  std::set<std::string> seenIds;
  for (const auto& folder : desktopEntryFolders()) {
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

std::vector<std::string> ApplicationFolders::exportedShareFolders() {
  return {XdgDirs::dataHome() + "/flatpak/exports/share", "/var/lib/flatpak/exports/share",
          "/var/lib/snapd/desktop"};
}

std::vector<std::string> ApplicationFolders::bundleFolders() {
  std::vector<std::string> folders;
  if (auto system = MonitorString::applicationPath()) addFolder(folders, *system);
  if (auto user = MonitorString::userApplicationPath()) addFolder(folders, *user);
  addFolder(folders, XdgDirs::home() + "/Applications");
  return folders;
}

std::vector<std::string> ApplicationFolders::desktopEntryFolders() {
  std::vector<std::string> folders;
  addFolder(folders, XdgDirs::dataHome() + "/applications");
  for (const auto& dir : XdgDirs::dataDirs()) addFolder(folders, dir + "/applications");
  for (const auto& share : exportedShareFolders()) addFolder(folders, share + "/applications");
  return folders;
}

}  // namespace vexa
