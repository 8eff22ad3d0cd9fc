#include "monitors/AppRecordBuilder.h"

#include <algorithm>

#include "monitors/AppBundle.h"
#include "monitors/DesktopAppBundle.h"
#include "monitors/ItemMetadata.h"
#include "monitors/PackageDatabase.h"
#include "monitors/PackageMetadata.h"
#include "util/PathName.h"
#include "vexa/util/AppIdentity.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

using nlohmann::json;

namespace {

constexpr int64_t kX86_64 = 0x01000007, kI386 = 7, kPowerPC64 = 0x01000012, kPowerPC = 0x12;

bool isUtf8(const std::string& s) { return MonitorString::cstringToString(s.c_str()).has_value(); }

// Text read from a file as valid UTF-8: bytes that are not become U+FFFD, so the record can
// still be written as JSON.
std::optional<std::string> asUtf8(const std::optional<std::string>& s) {
  if (!s || isUtf8(*s)) return s;
  const std::string quoted = json(*s).dump(-1, ' ', false, json::error_handler_t::replace);
  return json::parse(quoted).get<std::string>();
}

// The last path component without its extension ("/a/Editor.app/" -> "Editor").
std::string bareName(const std::string& path) {
  std::string name = PathName::lastComponent(path);
  const size_t dot = name.rfind('.');
  if (dot != std::string::npos && dot > 0) name.resize(dot);
  return name;
}

}  // namespace

bool AppRecordBuilder::fill(const std::string& path, AppFile& app) const {
  if (!PathName::exists(path) || !isUtf8(path)) return false;
  auto bundle = AppBundle::open(path);
  return bundle && fill(*bundle, app);
}

bool AppRecordBuilder::fill(const AppBundle& bundle, AppFile& app) const {
  const std::string ownIdentifier = AppIdentity::name();
  const std::string& path = bundle.path();
  if (!isUtf8(path)) return false;

  app.appName = bundle.infoString("CFBundleName");
  if (MonitorString::isNilOrEmpty(app.appName)) app.appName = bareName(path);
  app.appDisplayName = bundle.displayName();
  if (MonitorString::isNilOrEmpty(app.appDisplayName)) app.appDisplayName = bareName(path);
  app.appVersion = bundle.infoString("CFBundleShortVersionString");
  if (MonitorString::isNilOrEmpty(app.appVersion)) {
    app.appVersion = bundle.infoString("CFBundleVersion");
  }
  app.appPath = path;
  fillUsage(path, app);
  fillFromPackage(path, app);

  app.appBundleIdentifer = bundle.infoString("CFBundleIdentifier");
  app.appIconCachePath = icons_.iconPathFor(bundle.info(), path, app.appBundleIdentifer);
  if (MonitorString::isNilOrEmpty(app.appBundleIdentifer)) return false;
  if (*app.appBundleIdentifer == ownIdentifier) return false;
  app.appDomain = AppFile::domainOf(*app.appBundleIdentifer);

  app.executablePath = bundle.executablePath();
  app.executableArchs = bundle.executableArchitectures();
  fillPlatformSupport(bundle, app);
  app.isUniBinary = app.executableArchs->size() > 1;
  for (auto* field :
       {&app.appName, &app.appDisplayName, &app.appVersion, &app.appBundleIdentifer,
        &app.minSupportOSXVersion, &app.appDomain, &app.appIconCachePath, &app.executablePath}) {
    *field = asUtf8(*field);
  }
  return true;
}

// Missing attributes leave their fields at zero: they never fail a record.
void AppRecordBuilder::fillUsage(const std::string& path, AppFile& app) const {
  const auto attributes =
      ItemMetadata::attributes(path, {"kMDItemLogicalSize", "kMDItemContentCreationDate",
                                      "kMDItemLastUsedDate", "kMDItemUseCount"});
  if (!attributes) return;
  const json& a = *attributes;
  if (a.contains("kMDItemLogicalSize")) app.appSize = a["kMDItemLogicalSize"].get<uint64_t>();
  if (a.contains("kMDItemContentCreationDate")) {
    app.createDate = static_cast<uint64_t>(a["kMDItemContentCreationDate"].get<int64_t>());
  }
  if (a.contains("kMDItemLastUsedDate")) {
    app.lastUseDate = static_cast<uint32_t>(a["kMDItemLastUsedDate"].get<int64_t>());
  }
  if (a.contains("kMDItemUseCount")) app.usedCount = a["kMDItemUseCount"].get<uint64_t>();
}

// A desktop entry is a few hundred bytes of a package: the package says what was installed.
// AppImages and bundles carry their own version and size. What the package does not say (a
// snap.yaml without a version, an unreadable deployment) keeps the entry's own values.
void AppRecordBuilder::fillFromPackage(const std::string& path, AppFile& app) const {
  if (!packages_ || !DesktopAppBundle::hasEntryName(path)) return;
  const auto owner = packages_->ownerOf(path);
  if (!owner) return;
  if (owner->version) {
    std::string version = owner->manager == PackageOwner::Manager::Dpkg
                              ? PackageMetadata::upstreamVersion(*owner->version)
                              : *owner->version;
    if (!version.empty()) app.appVersion = std::move(version);
  }
  if (owner->installedSize) app.appSize = *owner->installedSize;
}

// Whether it can run here: not when it asks for a newer system than this one, nor when its
// program holds no processor type this machine runs (a 64-bit machine also runs the 32-bit
// type of its family).
void AppRecordBuilder::fillPlatformSupport(const AppBundle& bundle, AppFile& app) const {
  std::optional<std::string> minimum = bundle.infoString("Minimum system version");
  if (!minimum) minimum = bundle.infoString("LSMinimumSystemVersion");
  if (minimum) {
    app.minSupportOSXVersion = minimum;
    if (MonitorString::isGreaterThan(*minimum, systemVersion_)) app.platformSupport = false;
  }
  const auto& archs = *app.executableArchs;
  if (archs.empty() || !app.platformSupport) return;
  const int64_t machine = MonitorString::platformFlag();
  auto has = [&](int64_t type) {
    return std::find(archs.begin(), archs.end(), type) != archs.end();
  };
  if (has(machine)) return;
  if (machine == kPowerPC64 && !has(kPowerPC)) app.platformSupport = false;
  if (machine == kX86_64 && !has(kI386)) app.platformSupport = false;
}

}  // namespace vexa
