#include "vexa/monitors/MonitorApplication.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <condition_variable>
#include <filesystem>
#include <thread>

#include "monitors/AppBundle.h"
#include "monitors/ApplicationFolders.h"
#include "monitors/IconTheme.h"
#include "monitors/ItemMetadata.h"
#include "util/AtomicFile.h"
#include "util/PropertyList.h"
#include "util/XdgDirs.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/messaging/Message.h"
#include "vexa/messaging/XConnectClient.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/privileged/BrindleUtility.h"
#include "vexa/util/AppIdentity.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/Image.h"
#include "vexa/util/MonitorData.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr int kIconEdge = 64;
constexpr size_t kPathsPerHelper = 32;  // an inventory smaller than this stays on one thread
constexpr std::size_t kCacheLimit = std::size_t{256} << 20;  // compressed or inflated

const char* const kSystemApplications[] = {"Activity Monitor",
                                           "Address Book",
                                           "AirPort Utility",
                                           "App Store",
                                           "AppleScript Editor",
                                           "AppleScript Utility",
                                           "Audio MIDI Setup",
                                           "Automator",
                                           "Bluetooth File Exchange",
                                           "Boot Camp Assistant",
                                           "Calculator",
                                           "Calendar",
                                           "Chess",
                                           "ColorSync Utility",
                                           "Console",
                                           "Contacts",
                                           "Dashboard",
                                           "Dictionary",
                                           "DigitalColor Meter",
                                           "Directory",
                                           "Directory Utility",
                                           "Disk Utility",
                                           "DVD Player",
                                           "Expose",
                                           "Grab",
                                           "Grapher",
                                           "FaceTime",
                                           "Folder Actions Setup",
                                           "Font Book",
                                           "Front Row",
                                           "Game Center",
                                           "iCal",
                                           "iChat",
                                           "Image Capture",
                                           "iSync",
                                           "iTunes",
                                           "Java Preferences",
                                           "Keychain Access",
                                           "Launchpad",
                                           "Mail",
                                           "Messages",
                                           "Migration Assistant",
                                           "Mission Control",
                                           "Network Utility",
                                           "Notes",
                                           "ODBC Administrator",
                                           "Photo Booth",
                                           "Podcast Capture",
                                           "Podcast Publisher",
                                           "Preview",
                                           "QuickTime Player",
                                           "Reminders",
                                           "Remote Install Mac OS X",
                                           "Safari",
                                           "Script Editor",
                                           "Spaces",
                                           "Stickies",
                                           "System Information",
                                           "System Preferences",
                                           "System Profiler",
                                           "Terminal",
                                           "TextEdit",
                                           "Time Machine",
                                           "RAID Utility",
                                           "VoiceOver Utility",
                                           "X11",
                                           "/Developer",
                                           "/System/Library",
                                           "/opt",
                                           "/Library/Image Capture",
                                           "/Library/Application Support",
                                           "/Library/Scripts",
                                           "iTunesHelper",
                                           "Map",
                                           "Photos",
                                           "iBooks",
                                           "Xcode",
                                           "Siri"};

json makeSystemFilter() {
  json filter = json::object();
  int key = 0;
  for (const char* name : kSystemApplications) filter[std::to_string(key++)] = name;
  return filter;
}

json makeSpecialFilter() {
  return {
      {"LeftOverElement", {{"IgnoreLeftOver", {"com.microsoft.office"}}}},
      {"UninstallElement",
       {{"Caches", {"Chrome"}}, {"Preferences", {"com.google"}}, {"Binaries", {"com.microsoft"}}}}};
}

json makeGroupFilter() { return {{"com.microsoft", "Microsoft Office"}, {"com.adobe", "Adobe"}}; }

bool exists(const std::string& path) {
  std::error_code ec;
  return !path.empty() && fs::exists(path, ec);
}

bool isFolder(const std::string& path) {
  std::error_code ec;
  return fs::is_directory(path, ec);
}

bool startsWith(const std::string& s, const std::string& prefix) {
  return s.compare(0, prefix.size(), prefix) == 0;
}

// The last path component without its extension ("/a/Editor.app/" -> "Editor").
std::string bareName(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  std::string name = path.substr(path.rfind('/') + 1);
  const size_t dot = name.rfind('.');
  if (dot != std::string::npos && dot > 0) name.resize(dot);
  return name;
}

std::string lowerCase(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
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

// Writes the picture under a name of its own, then renames it into place: readers never see a
// part of a file, and two threads that make the same icon at once both leave a whole one.
void writeOnce(const std::shared_ptr<Image>& image, const std::string& target) {
  static std::atomic<uint64_t> counter{0};
  if (!image) return;
  const std::string partial = target + ".part" + std::to_string(counter.fetch_add(1));
  std::error_code ec;
  if (image->writePNG(partial)) fs::rename(partial, target, ec);
  if (ec || exists(partial)) fs::remove(partial, ec);
}

bool isUtf8(const std::string& s) { return MonitorString::cstringToString(s.c_str()).has_value(); }

// Text read from a file as valid UTF-8: bytes that are not become U+FFFD, so the record can
// still be written as JSON.
std::optional<std::string> asUtf8(const std::optional<std::string>& s) {
  if (!s || isUtf8(*s)) return s;
  const std::string quoted = json(*s).dump(-1, ' ', false, json::error_handler_t::replace);
  return json::parse(quoted).get<std::string>();
}

json dictionaryOf(const AppFile& app) {
  return Json2Model::getDictionaryByObject(&app).value_or(json::object());
}

}  // namespace

MonitorApplication& MonitorApplication::shared() {
  static std::shared_ptr<MonitorApplication>* instance = new std::shared_ptr<MonitorApplication>(
      new MonitorApplication(MonitorDispatch::shared(), XSocketServer::shared()));
  return **instance;
}

std::shared_ptr<MonitorApplication> MonitorApplication::create(MonitorDispatch& dispatch,
                                                               XSocketServer& server) {
  return std::shared_ptr<MonitorApplication>(new MonitorApplication(dispatch, server));
}

MonitorApplication::MonitorApplication(MonitorDispatch& dispatch, XSocketServer& server)
    : dispatch_(dispatch),
      server_(server),
      queue_(DispatchQueue::global()),
      osxVersion_(MonitorString::osVersion()),
      systemFilter_(makeSystemFilter()),
      specialFilter_(makeSpecialFilter()),
      groupFilter_(makeGroupFilter()) {
  AppFile::registerModelClass();
}

std::shared_ptr<MonitorApplicationDelegate> MonitorApplication::delegate() const {
  std::lock_guard lock(fieldsMutex_);
  return delegate_;
}

void MonitorApplication::setDelegate(std::shared_ptr<MonitorApplicationDelegate> delegate) {
  std::lock_guard lock(fieldsMutex_);
  delegate_ = std::move(delegate);
}

std::string MonitorApplication::cacheFolderPath() const {
  std::lock_guard lock(fieldsMutex_);
  return cacheFolderPath_;
}

void MonitorApplication::setCacheFolderPath(const std::string& folder) {
  std::lock_guard lock(fieldsMutex_);
  cacheFolderPath_ = folder;
  if (!folder.empty()) cacheFilePath_ = (fs::path(folder) / kCacheFileName).string();
}

std::string MonitorApplication::cacheFilePath() const {
  std::lock_guard lock(fieldsMutex_);
  return cacheFilePath_;
}

std::map<std::string, std::shared_ptr<AppFile>> MonitorApplication::apps() const {
  std::lock_guard lock(lock_);
  std::map<std::string, std::shared_ptr<AppFile>> copy;
  for (const auto& [path, app] : apps_) copy.emplace(path, std::make_shared<AppFile>(*app));
  return copy;
}

std::vector<std::shared_ptr<AppFile>> MonitorApplication::notifyCached() const {
  std::lock_guard lock(fieldsMutex_);
  return notifyCached_;
}

std::optional<std::vector<std::string>> MonitorApplication::installPaths() const {
  std::lock_guard lock(fieldsMutex_);
  return installPaths_;
}

void MonitorApplication::setInstallPaths(std::optional<std::vector<std::string>> paths) {
  std::lock_guard lock(fieldsMutex_);
  installPaths_ = std::move(paths);
}

// ---- Lifecycle -------------------------------------------------------------------------------

std::vector<std::string> MonitorApplication::watchedPaths() const {
  // The home folder and both applications folders; one nested in another is left to the outer
  // one, so that a single event reaches this monitor once.
  std::vector<std::string> candidates{MonitorString::userHomePath()};
  if (auto system = MonitorString::applicationPath()) candidates.push_back(*system);
  if (auto user = MonitorString::userApplicationPath()) candidates.push_back(*user);
  std::vector<std::string> paths;
  for (const auto& path : candidates) {
    const bool nested = std::any_of(candidates.begin(), candidates.end(), [&](const auto& other) {
      return other != path && startsWith(path, other) &&
             (other.back() == '/' || path[other.size()] == '/');
    });
    if (!nested && std::find(paths.begin(), paths.end(), path) == paths.end()) {
      paths.push_back(path);
    }
  }
  return paths;
}

void MonitorApplication::startMonitor() {
  {
    std::lock_guard lock(lock_);
    apps_.clear();
    appsCreated_ = true;
  }
  {
    std::lock_guard lock(fieldsMutex_);
    notifyCached_.clear();
    if (cacheFolderPath_.empty()) {
      cacheFolderPath_ =
          MonitorString::cacheFolder().value_or(XdgDirs::cacheHome() + "/" + AppIdentity::name());
      cacheFilePath_ = (fs::path(cacheFolderPath_) / kCacheFileName).string();
    }
  }
  const std::string folder = cacheFolderPath();
  if (exists(folder) && !isFolder(folder)) {
    std::error_code ec;
    fs::remove(folder, ec);
  }
  AtomicFile::createFolders(folder);
  if (exists(cacheFilePath())) {
    unarchiver();
    flushCacheData();
  } else {
    queryAllInstalledAppWithFilter({"/"});
    archiver();
  }
  auto self = shared_from_this();
  for (const auto& path : watchedPaths()) dispatch_.addMonitorPath(path, self);
}

void MonitorApplication::stopMonotor() {
  auto self = shared_from_this();
  for (const auto& path : watchedPaths()) dispatch_.removeMonitorPath(path, self);
}

// ---- Cache ---------------------------------------------------------------------------------

void MonitorApplication::archiver() {
  std::lock_guard lock(lock_);
  writeCacheLocked();
}

void MonitorApplication::writeCacheLocked() {
  const std::string folder = cacheFolderPath();
  const std::string file = cacheFilePath();
  if (folder.empty() || file.empty()) return;
  if (exists(folder) && !isFolder(folder)) {
    std::error_code ec;
    fs::remove(folder, ec);
  }
  AtomicFile::createFolders(folder);
  json installed = json::object();
  for (const auto& [path, app] : apps_) installed[path] = app->toJSON();
  auto archive = PropertyList::toBinary(json{{"InstallApp", installed}});
  if (!archive) return;
  auto packed = MonitorData::gzipData(std::string_view(*archive));
  if (!packed) return;
  // Replaced in one step: a reader (or a crash) sees the old cache or the new one.
  AtomicFile::write(
      file, std::string_view(reinterpret_cast<const char*>(packed->data()), packed->size()), 0600);
}

void MonitorApplication::unarchiver() {
  const std::string file = cacheFilePath();
  if (file.empty() || !exists(file) || isFolder(file)) return;
  auto packed = AtomicFile::read(file, kCacheLimit);
  if (!packed) return;
  auto archive = MonitorData::ungzipData(
      std::span(reinterpret_cast<const uint8_t*>(packed->data()), packed->size()), kCacheLimit);
  if (!archive) return;
  auto root = PropertyList::parse(std::span<const uint8_t>(archive->data(), archive->size()));
  if (!root || !root->is_object() || !root->contains("InstallApp")) return;
  const json& installed = (*root)["InstallApp"];
  if (!installed.is_object()) return;
  std::lock_guard lock(lock_);
  appsCreated_ = true;
  for (const auto& [path, text] : installed.items()) {
    if (!text.is_string()) continue;
    if (auto app = AppFile::fromJSON(text.get<std::string>())) apps_[path] = std::move(app);
  }
}

// ---- Inventory ------------------------------------------------------------------------------

void MonitorApplication::queryAllInstalledAppWithFilter(const std::vector<std::string>& filter) {
  std::vector<std::string> paths;
  for (std::string path : ApplicationFolders::allApplications()) {
    formatAppPath(path);
    const bool qualifies =
        filter.empty() || std::any_of(filter.begin(), filter.end(),
                                      [&](const std::string& p) { return startsWith(path, p); });
    if (qualifies) paths.push_back(std::move(path));
  }
  // Filling a record is mostly waiting on the disk and decoding an icon: the records are filled
  // by a few workers of the global queue together with this thread.
  std::atomic<size_t> next{0};
  auto fillSome = [&] {
    for (size_t i; (i = next.fetch_add(1)) < paths.size();) {
      try {
        auto app = std::make_shared<AppFile>();
        if (!wBscInfoFrPath(paths[i], *app)) continue;
        std::lock_guard lock(lock_);
        apps_[paths[i]] = std::move(app);
      } catch (const std::exception&) {
        // One unreadable application (out of memory, say) leaves the others to be recorded,
        // and the wait below always ends.
      }
    }
  };
  const size_t helpers = std::min<size_t>(std::max(1u, std::thread::hardware_concurrency()) - 1,
                                          paths.size() / kPathsPerHelper);
  std::mutex doneMutex;
  std::condition_variable doneChanged;
  size_t running = helpers;
  for (size_t h = 0; h < helpers; ++h) {
    queue_.async([&] {
      fillSome();
      std::lock_guard lock(doneMutex);
      if (--running == 0) doneChanged.notify_all();
    });
  }
  fillSome();
  std::unique_lock lock(doneMutex);
  doneChanged.wait(lock, [&] { return running == 0; });
}

bool MonitorApplication::isApplication(const std::string& path) const {
  if (auto attributes = dicForMDItem(path, std::vector<std::string>{"kMDItemKind"})) {
    auto kind = attributes->find("kMDItemKind");
    if (kind != attributes->end() && kind->is_string()) {
      return lowerCase(kind->get<std::string>()) == "application";
    }
  }
  // Gone already (a deletion): judged by its name.
  return AppBundle::hasApplicationName(path);
}

std::vector<std::shared_ptr<AppFile>> MonitorApplication::getAllScanApps() {
  bool created;
  {
    std::lock_guard lock(lock_);
    created = appsCreated_;
  }
  if (!created) unarchiver();
  std::lock_guard lock(lock_);
  std::vector<std::shared_ptr<AppFile>> marked;
  for (const auto& [path, app] : apps_) {
    if (app->needForceRemove) marked.push_back(std::make_shared<AppFile>(*app));
  }
  return marked;
}

void MonitorApplication::flushCacheData() {
  auto marked = getAllScanApps();
  auto listener = delegate();
  if (!marked.empty() && listener) listener->appsScan(marked);
}

void MonitorApplication::sendRemoveAppToClient(const std::shared_ptr<XConnectClient>& connection) {
  auto marked = getAllScanApps();
  if (marked.empty() || !connection) return;
  json list = json::array();
  for (const auto& app : marked) list.push_back(dictionaryOf(*app));
  connection->sendData(Message("RemoveCommand", {{"AppFiles", std::move(list)}}));
}

void MonitorApplication::clearForceRemovedApp(const std::vector<std::string>& paths) {
  {
    std::lock_guard lock(lock_);
    for (const auto& path : paths) apps_.erase(path);
  }
  auto self = shared_from_this();
  queue_.async([self] { self->archiver(); });
}

// ---- Changes --------------------------------------------------------------------------------

void MonitorApplication::announceLocked(const std::string& name, const std::string& path,
                                        const AppFile& app) {
  const auto prefixes = installPaths();
  if (!prefixes || prefixes->empty()) return;
  const bool listed = std::any_of(prefixes->begin(), prefixes->end(),
                                  [&](const std::string& p) { return startsWith(path, p); });
  if (!listed) return;
  auto host = server_.getConnetClientByIdentity(XSocketServer::kHostIdentity);
  if (!host) return;
  host->sendData(Message(name, {{"AppFile", dictionaryOf(app)}}));
}

void MonitorApplication::installApp(const std::string& path) {
  std::lock_guard lock(lock_);
  if (!exists(path)) return;
  auto app = std::make_shared<AppFile>();
  if (!wBscInfoFrPath(path, *app)) return;
  apps_[path] = app;
  announceLocked("InstallCommand", path, *app);
}

void MonitorApplication::uninstallApp(const std::string& path) {
  std::lock_guard lock(lock_);
  if (apps_.count(path)) return;
  auto app = std::make_shared<AppFile>();
  app->needForceRemove = true;
  if (wBscInfoFrPath(path, *app)) apps_[path] = app;
  if (auto listener = delegate()) listener->appRemoved(std::make_shared<AppFile>(*app));
  writeCacheLocked();
  announceLocked("UninstallCommand", path, *app);
}

void MonitorApplication::removeApp(const std::string& path, double seconds) {
  std::lock_guard lock(lock_);
  auto it = apps_.find(path);
  if (it == apps_.end()) return;
  std::weak_ptr<MonitorApplication> weak = weak_from_this();
  std::shared_ptr<AppFile> app = it->second;
  queue_.after(seconds, [weak, path, app] {
    auto self = weak.lock();
    if (!self || exists(path)) return;
    std::shared_ptr<AppFile> copy;
    {
      std::lock_guard lock(self->lock_);
      app->needForceRemove = true;
      self->writeCacheLocked();
      copy = std::make_shared<AppFile>(*app);
    }
    if (auto listener = self->delegate()) listener->appRemoved(copy);
  });
}

void MonitorApplication::fileCreated(const std::string& path) {
  if (!isApplication(path)) return;
  auto trash = MonitorString::userTrashPath();
  if (trash && startsWith(path, *trash)) return;
  installApp(path);
}

void MonitorApplication::fileMoveIn(const std::string& path) {
  if (!isApplication(path)) return;
  auto trash = MonitorString::userTrashPath();
  if (trash && startsWith(path, *trash))
    uninstallApp(path);
  else
    installApp(path);
}

void MonitorApplication::fileMoveOut(const std::string& path) {
  if (!isApplication(path)) return;
  std::lock_guard lock(lock_);
  apps_.erase(path);
}

void MonitorApplication::fileRemove(const std::string& path) {
  if (!isApplication(path)) return;
  removeApp(path, kRemoveDelaySeconds);
}

// ---- Host commands --------------------------------------------------------------------------

void MonitorApplication::setInstallPaths(const json& paths) {
  if (!paths.is_array()) return;
  std::vector<std::string> list;
  for (const auto& p : paths) {
    if (p.is_string()) list.push_back(p.get<std::string>());
  }
  setInstallPaths(std::optional(std::move(list)));
}

void MonitorApplication::clearForceRemovedApp(const json& paths) {
  if (!paths.is_array() || paths.empty()) return;
  std::vector<std::string> list;
  for (const auto& p : paths) {
    if (p.is_string()) list.push_back(p.get<std::string>());
  }
  clearForceRemovedApp(list);
}

void MonitorApplication::hostConnected(const std::shared_ptr<XConnectClient>& connection) {
  sendRemoveAppToClient(connection);
}

// ---- Records --------------------------------------------------------------------------------

bool MonitorApplication::wBscInfoFrPath(const std::string& path, AppFile& app) const {
  const std::string ownIdentifier = AppIdentity::name();
  // A path that is not UTF-8 cannot be told to the host, which names applications by path.
  if (!exists(path) || !isUtf8(path)) return false;
  auto bundle = AppBundle::open(path);
  if (!bundle) return false;
  const json& info = bundle->info();

  app.appName = bundle->infoString("CFBundleName");
  if (MonitorString::isNilOrEmpty(app.appName)) app.appName = bareName(path);
  app.appDisplayName = bundle->displayName();
  if (MonitorString::isNilOrEmpty(app.appDisplayName)) app.appDisplayName = bareName(path);
  app.appVersion = bundle->infoString("CFBundleShortVersionString");
  if (MonitorString::isNilOrEmpty(app.appVersion))
    app.appVersion = bundle->infoString("CFBundleVersion");
  app.appPath = path;

  if (auto attributes = dicForMDItem(
          path, std::vector<std::string>{"kMDItemLogicalSize", "kMDItemContentCreationDate",
                                         "kMDItemLastUsedDate", "kMDItemUseCount"})) {
    const json& a = *attributes;
    if (a.contains("kMDItemLogicalSize")) app.appSize = a["kMDItemLogicalSize"].get<uint64_t>();
    if (a.contains("kMDItemContentCreationDate"))
      app.createDate = static_cast<uint64_t>(a["kMDItemContentCreationDate"].get<int64_t>());
    if (a.contains("kMDItemLastUsedDate"))
      app.lastUseDate = static_cast<uint32_t>(a["kMDItemLastUsedDate"].get<int64_t>());
    if (a.contains("kMDItemUseCount")) app.usedCount = a["kMDItemUseCount"].get<uint64_t>();
  }

  app.appBundleIdentifer = bundle->infoString("CFBundleIdentifier");
  app.appIconCachePath = getOrCreateIconPath(info, path, app.appBundleIdentifer);
  if (MonitorString::isNilOrEmpty(app.appBundleIdentifer)) return false;
  if (*app.appBundleIdentifer == ownIdentifier) return false;  // never report ourselves
  app.appDomain = AppFile::domainOf(*app.appBundleIdentifer);

  app.executablePath = bundle->executablePath();
  app.executableArchs = bundle->executableArchitectures();

  // Whether it can run here: a newer minimum system than ours, or no architecture this
  // processor runs.
  std::optional<std::string> minimum = bundle->infoString("Minimum system version");
  if (!minimum) minimum = bundle->infoString("LSMinimumSystemVersion");
  if (minimum) {
    app.minSupportOSXVersion = minimum;
    if (MonitorString::isGreaterThan(*minimum, osxVersion_)) app.platformSupport = false;
  }
  const auto& archs = *app.executableArchs;
  if (!archs.empty() && app.platformSupport) {
    const int64_t machine = MonitorString::platformFlag();
    auto has = [&](int64_t type) {
      return std::find(archs.begin(), archs.end(), type) != archs.end();
    };
    if (!has(machine)) {
      if (machine == 0x01000012 && !has(0x12)) app.platformSupport = false;
      if (machine == 0x01000007 && !has(7)) app.platformSupport = false;
    }
  }
  app.isUniBinary = archs.size() > 1;
  for (auto* field :
       {&app.appName, &app.appDisplayName, &app.appVersion, &app.appBundleIdentifer,
        &app.minSupportOSXVersion, &app.appDomain, &app.appIconCachePath, &app.executablePath}) {
    *field = asUtf8(*field);
  }
  return true;
}

void MonitorApplication::formatAppPath(std::string& path) { path = AppFile::formatAppPath(path); }

std::optional<std::string> MonitorApplication::getOrCreateIconPath(
    const json& info, const std::string& path, const std::optional<std::string>& cacheName) const {
  if (MonitorString::isNilOrEmpty(cacheName) || !info.is_object()) return std::nullopt;
  // A bundle names its icon relative to its resources; the other kinds name a file of their own.
  const bool inResources = AppBundle::hasBundleName(path);
  auto candidateFor = [&](std::string name) -> std::optional<std::string> {
    if (!hasExtension(name)) name += ".icns";
    if (inResources) {
      if (name.find("..") != std::string::npos) return std::nullopt;
      std::string bundle = path;
      while (bundle.size() > 1 && bundle.back() == '/') bundle.pop_back();
      return bundle + "/Contents/Resources/" + name;
    }
    if (name.empty() || name.front() != '/') return std::nullopt;
    return name;
  };
  for (const auto& [key, value] : info.items()) {
    if (lowerCase(key).find("icon") == std::string::npos) continue;
    if (!value.is_string() || value.get_ref<const std::string&>().empty()) return std::nullopt;
    auto candidate = candidateFor(value.get<std::string>());
    if (candidate && exists(*candidate)) return createThumb(*candidate, *cacheName);
  }
  for (const auto& [key, value] : info.items()) {
    if (!value.is_string()) continue;
    const std::string& text = value.get_ref<const std::string&>();
    if (text.find(".icns") == std::string::npos) continue;
    auto candidate = candidateFor(text);
    if (candidate && exists(*candidate)) return createThumb(*candidate, *cacheName);
  }
  return defaultIconPath();
}

std::string MonitorApplication::createThumb(const std::string& source,
                                            const std::string& cacheName) const {
  const std::string target =
      (fs::path(cacheFolderPath()) / (safeFileName(cacheName) + ".png")).string();
  if (exists(source) && !exists(target)) {
    AtomicFile::createFolders(cacheFolderPath());
    writeOnce(BrindleUtility::createThumbnailWithImage(Image::load(source), kIconEdge), target);
  }
  return target;
}

std::shared_ptr<Image> MonitorApplication::getDefaultAppIcon() const {
  std::shared_ptr<Image> icon;
  if (auto file = IconTheme::lookup("application-x-executable", kIconEdge))
    icon = Image::load(*file);
  // Without an icon theme the generic icon is a plain tile.
  if (!icon) return Image::filled(kIconEdge, kIconEdge, 0x7f8c8dff);
  if (icon->width() <= kIconEdge && icon->height() <= kIconEdge) return icon;
  return icon->scaled(kIconEdge, kIconEdge);
}

std::optional<std::string> MonitorApplication::defaultIconPath() const {
  const std::string folder = cacheFolderPath();
  if (folder.empty()) return std::nullopt;
  const std::string target = (fs::path(folder) / "default.png").string();
  if (!exists(target)) {
    AtomicFile::createFolders(folder);
    writeOnce(getDefaultAppIcon(), target);
  }
  return target;
}

std::optional<json> MonitorApplication::dicForMDItem(
    const std::string& path, const std::optional<std::vector<std::string>>& names) {
  if (!names) return std::nullopt;
  return ItemMetadata::attributes(path, *names);
}

std::optional<std::string> MonitorApplication::pathForAppWithIdentifier(
    const std::string& identifier) {
  if (identifier.empty()) return std::nullopt;
  for (const auto& path : ApplicationFolders::allApplications()) {
    auto bundle = AppBundle::open(path);
    if (bundle && bundle->infoString("CFBundleIdentifier") == identifier) return path;
  }
  return std::nullopt;
}

}  // namespace vexa
