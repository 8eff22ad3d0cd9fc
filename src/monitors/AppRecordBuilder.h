#pragma once

#include <memory>
#include <string>

#include "monitors/AppIconCache.h"
#include "vexa/monitors/AppFile.h"

namespace vexa {

class AppBundle;
class PackageDatabase;

// Fills application records: the names, version and identifier from the application's Info
// dictionary, sizes and dates from the file system, the icon through the icon cache, the
// program and its processor types, and whether the application can run here.
//
// A value: cheap to make, safe to use from many threads at once. Filling reads the disk and may
// decode a picture, so it runs before any lock is taken.
class AppRecordBuilder {
 public:
  // `systemVersion` is the running system's version, against which an application's minimum
  // system version is compared. A desktop entry that a package of `packages` (may be null) owns
  // takes the package's version (upstream part) and installed size.
  AppRecordBuilder(std::string systemVersion, AppIconCache icons,
                   std::shared_ptr<PackageDatabase> packages = nullptr)
      : systemVersion_(std::move(systemVersion)),
        icons_(std::move(icons)),
        packages_(std::move(packages)) {}

  // Opens the application at `path` and fills `app` from it. False when nothing is there, the
  // path is not UTF-8 (the host names applications by path), it does not open as an
  // application, or it is not one to report (see the other overload).
  bool fill(const std::string& path, AppFile& app) const;
  // Fills `app` from an application already open. False, with `app` partly filled, when it has
  // no identifier or has this process's own (a process never reports itself).
  bool fill(const AppBundle& bundle, AppFile& app) const;

 private:
  void fillUsage(const std::string& path, AppFile& app) const;
  void fillPlatformSupport(const AppBundle& bundle, AppFile& app) const;
  void fillFromPackage(const std::string& path, AppFile& app) const;

  std::string systemVersion_;
  AppIconCache icons_;
  std::shared_ptr<PackageDatabase> packages_;
};

}  // namespace vexa
