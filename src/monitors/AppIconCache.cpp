#include "monitors/AppIconCache.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <filesystem>
#include <mutex>

#include "monitors/AppBundle.h"
#include "util/AtomicFile.h"
#include "util/IconTheme.h"
#include "util/PathName.h"
#include "vexa/privileged/BrindleUtility.h"
#include "vexa/util/Image.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

bool mentionsIcon(std::string key) {
  for (char& c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return key.find("icon") != std::string::npos;
}

bool hasExtension(const std::string& name) {
  const size_t slash = name.rfind('/');
  const size_t dot = name.rfind('.');
  return dot != std::string::npos && (slash == std::string::npos || dot > slash + 1);
}

// A thumbnail's file name from a bundle identifier: it must stay a single name inside the
// cache folder whatever the identifier holds.
std::string safeFileName(std::string name) {
  std::replace(name.begin(), name.end(), '/', '_');
  if (name == "." || name == "..") name = "_";
  return name;
}

// Writes the picture under a name of its own, then renames it into place.
void writeOnce(const std::shared_ptr<Image>& image, const std::string& target) {
  static std::atomic<uint64_t> counter{0};
  if (!image) return;
  const std::string partial = target + ".part" + std::to_string(counter.fetch_add(1));
  std::error_code ec;
  if (image->writePNG(partial)) fs::rename(partial, target, ec);
  if (ec || PathName::entryExists(partial)) fs::remove(partial, ec);
}

}  // namespace

std::optional<std::string> AppIconCache::iconPathFor(
    const json& info, const std::string& path, const std::optional<std::string>& cacheName) const {
  if (MonitorString::isNilOrEmpty(cacheName) || !info.is_object()) return std::nullopt;
  const bool inResources = AppBundle::hasBundleName(path);
  auto candidateFor = [&](std::string name) -> std::optional<std::string> {
    if (!hasExtension(name)) name += ".icns";
    if (inResources) {
      if (name.find("..") != std::string::npos) return std::nullopt;
      return PathName::withoutTrailingSlashes(path) + "/Contents/Resources/" + name;
    }
    if (name.empty() || name.front() != '/') return std::nullopt;
    return name;
  };
  for (const auto& [key, value] : info.items()) {
    if (!mentionsIcon(key)) continue;
    if (!value.is_string() || value.get_ref<const std::string&>().empty()) return std::nullopt;
    auto candidate = candidateFor(value.get<std::string>());
    if (candidate && PathName::exists(*candidate)) return createThumb(*candidate, *cacheName);
  }
  for (const auto& [key, value] : info.items()) {
    if (!value.is_string()) continue;
    const std::string& text = value.get_ref<const std::string&>();
    if (text.find(".icns") == std::string::npos) continue;
    auto candidate = candidateFor(text);
    if (candidate && PathName::exists(*candidate)) return createThumb(*candidate, *cacheName);
  }
  return defaultIconPath();
}

std::string AppIconCache::createThumb(const std::string& source,
                                      const std::string& cacheName) const {
  std::string target = (fs::path(folder_) / (safeFileName(cacheName) + ".png")).string();
  if (PathName::exists(source) && !PathName::exists(target)) {
    AtomicFile::createFolders(folder_);
    writeOnce(BrindleUtility::createThumbnailWithImage(Image::load(source), kIconEdge), target);
  }
  return target;
}

std::optional<std::string> AppIconCache::defaultIconPath() const {
  if (folder_.empty()) return std::nullopt;
  const std::string target = (fs::path(folder_) / "default.png").string();
  if (!PathName::exists(target)) {
    AtomicFile::createFolders(folder_);
    writeOnce(defaultIcon(), target);
  }
  return target;
}

std::shared_ptr<Image> AppIconCache::defaultIcon() {
  // Made once: every application without an icon of its own gets this one, and the workers
  // filling an inventory would otherwise each decode the theme's file at the same time.
  static std::once_flag once;
  static std::shared_ptr<Image>* made = nullptr;
  std::call_once(once, [] { made = new std::shared_ptr<Image>(makeDefaultIcon()); });
  return *made;
}

std::shared_ptr<Image> AppIconCache::makeDefaultIcon() {
  std::shared_ptr<Image> icon;
  if (auto file = IconTheme::lookup("application-x-executable", kIconEdge)) {
    icon = Image::load(*file);
  }
  if (!icon) return Image::filled(kIconEdge, kIconEdge, 0x7f8c8dff);
  if (icon->width() <= kIconEdge && icon->height() <= kIconEdge) return icon;
  return icon->scaled(kIconEdge, kIconEdge);
}

}  // namespace vexa
