#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace vexa {

// An installed application as one shape, whatever form it takes on disk: a ".app" bundle
// (Contents/Info.plist), a desktop entry of Type=Application, or an AppImage.
//
// Each describes itself with an Info dictionary using the bundle keys ("CFBundleName",
// "CFBundleIdentifier", "CFBundleShortVersionString", "CFBundleVersion", "CFBundleExecutable",
// "CFBundleIconFile", ...), so the record filler reads them all the same way.
class AppBundle {
 public:
  virtual ~AppBundle() = default;

  // Null when the path is none of the three (or cannot be read).
  static std::unique_ptr<AppBundle> open(const std::string& path);
  // Whether the path is an application, decided from its name and at most its first bytes, so
  // that it is cheap enough to ask of every file that appears.
  static bool isApplication(const std::string& path);
  // Whether the name alone is that of an application (".app", ".desktop", ".AppImage"): all
  // that is left to judge by once the item is gone.
  static bool hasApplicationName(const std::string& path);
  // open(path)->displayName(), without looking up what the name does not need (a desktop
  // entry's icon and program); nothing when open() would answer null.
  static std::optional<std::string> displayNameOf(const std::string& path);
  // A ".app" bundle's name.
  static bool hasBundleName(const std::string& path);

  const std::string& path() const { return path_; }
  const nlohmann::json& info() const { return info_; }
  // A string value of the Info dictionary; empty when absent or not a string.
  std::optional<std::string> infoString(const std::string& key) const;

  // The name a file manager shows for it.
  virtual std::optional<std::string> displayName() const = 0;
  // The program that runs when it is launched.
  virtual std::optional<std::string> executablePath() const = 0;
  // The processor types of that program (Mach-O CPU type numbers).
  virtual std::vector<int64_t> executableArchitectures() const;

 protected:
  AppBundle(std::string path, nlohmann::json info)
      : path_(std::move(path)), info_(std::move(info)) {}

 private:
  std::string path_;
  nlohmann::json info_;
};

}  // namespace vexa
