#pragma once

#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace vexa {

class Image;

// The 64-pixel PNG icons of the application records, one per bundle identifier, in one folder
// (the monitor's cache folder), with "default.png" for applications that name no icon.
//
// A value over a folder path: cheap to make for each fill, safe to use from any number of
// threads at once. An icon is made only when its file is missing; every file appears whole
// (written aside, then renamed into place), so two threads making the same icon both leave a
// whole one and a reader never sees a part. Making one decodes a picture: call without locks.
class AppIconCache {
 public:
  static constexpr int kIconEdge = 64;

  explicit AppIconCache(std::string folder) : folder_(std::move(folder)) {}

  // The icon of the application at `path` whose Info dictionary is `info`, named after
  // `cacheName`: the first key containing "icon" (any case) names it, else the first value
  // naming an ".icns" file; a ".app" bundle names it inside Contents/Resources, the other kinds
  // by absolute path. The default icon when neither names a file that exists; none when the
  // cache name is missing or the "icon" key's value is not a non-empty string.
  std::optional<std::string> iconPathFor(const nlohmann::json& info, const std::string& path,
                                         const std::optional<std::string>& cacheName) const;
  // The thumbnail of `source` named after `cacheName`, made when the source exists and the
  // thumbnail does not. Its path in every case.
  std::string createThumb(const std::string& source, const std::string& cacheName) const;
  // "default.png", made when missing; none without a folder.
  std::optional<std::string> defaultIconPath() const;
  // The desktop's generic program icon at most 64 pixels square; a plain tile without an icon
  // theme. One image, made on first use and shared.
  static std::shared_ptr<Image> defaultIcon();

 private:
  static std::shared_ptr<Image> makeDefaultIcon();

  std::string folder_;
};

}  // namespace vexa
