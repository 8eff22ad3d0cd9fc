#include "util/IconTheme.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "util/DesktopEntryFolders.h"
#include "util/PathName.h"
#include "util/XdgDirs.h"

namespace vexa {

namespace fs = std::filesystem;

namespace {

constexpr const char* kExtensions[] = {".png", ".svg", ".xpm"};
constexpr int kSizes[] = {16, 22, 24, 32, 48, 64, 96, 128, 256, 512};

std::optional<std::string> withExtension(const fs::path& stem) {
  for (const char* ext : kExtensions) {
    fs::path candidate = stem;
    candidate += ext;
    if (PathName::isRegularFile(candidate)) return candidate.string();
  }
  return std::nullopt;
}

// The size folders to try: the wanted size, the larger ones upwards, scalable, then the smaller
// ones downwards (a larger bitmap shrinks better than a smaller one grows).
std::vector<std::string> sizeOrder(int size) {
  std::vector<std::string> order;
  const std::string exact = std::to_string(size) + "x" + std::to_string(size);
  order.push_back(exact);
  for (int s : kSizes) {
    if (s > size) order.push_back(std::to_string(s) + "x" + std::to_string(s));
  }
  order.push_back("scalable");
  for (auto it = std::rbegin(kSizes); it != std::rend(kSizes); ++it) {
    if (*it < size) order.push_back(std::to_string(*it) + "x" + std::to_string(*it));
  }
  return order;
}

}  // namespace

std::vector<std::string> IconTheme::iconFolders() {
  std::vector<std::string> folders{XdgDirs::dataHome() + "/icons", XdgDirs::home() + "/.icons"};
  for (const auto& dir : XdgDirs::dataDirs()) folders.push_back(dir + "/icons");
  for (const auto& share : DesktopEntryFolders::exportedShareFolders())
    folders.push_back(share + "/icons");
  std::vector<std::string> unique;
  for (auto& f : folders) {
    if (std::find(unique.begin(), unique.end(), f) == unique.end()) unique.push_back(f);
  }
  return unique;
}

std::optional<std::string> IconTheme::lookupIn(const std::string& name,
                                               const std::vector<std::string>& themeNames,
                                               const std::string& context, int size) {
  if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..") {
    return std::nullopt;
  }
  const auto folders = iconFolders();
  for (const auto& themeName : themeNames) {
    std::vector<std::string> themes;
    for (const auto& folder : folders) {
      std::string theme = folder;
      theme.append("/").append(themeName);
      if (PathName::isFolder(theme)) themes.push_back(std::move(theme));
    }
    for (const auto& sizeFolder : sizeOrder(size)) {
      for (const auto& theme : themes) {
        if (auto found = withExtension(fs::path(theme) / sizeFolder / context / name)) return found;
      }
    }
  }
  return std::nullopt;
}

std::optional<std::string> IconTheme::lookup(const std::string& name, int size) {
  if (name.empty()) return std::nullopt;
  if (name.front() == '/') {
    if (PathName::isRegularFile(name)) return name;
    return std::nullopt;
  }
  if (name.find('/') != std::string::npos || name == "." || name == "..") return std::nullopt;
  if (auto found = lookupIn(name, {"hicolor"}, "apps", size)) return found;
  for (const auto& dir : XdgDirs::dataDirs()) {
    if (auto found = withExtension(fs::path(dir) / "pixmaps" / name)) return found;
  }
  return std::nullopt;
}

}  // namespace vexa
