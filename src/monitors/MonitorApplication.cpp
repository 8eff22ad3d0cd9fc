#include "vexa/monitors/MonitorApplication.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "monitors/AppBundle.h"
#include "monitors/AppIconCache.h"
#include "monitors/AppRecordBuilder.h"
#include "monitors/ApplicationCache.h"
#include "monitors/ApplicationFilters.h"
#include "monitors/ApplicationFolders.h"
#include "monitors/ApplicationInventory.h"
#include "monitors/HostAnnouncer.h"
#include "monitors/ItemMetadata.h"
#include "monitors/PackageDatabase.h"
#include "util/ParallelFor.h"
#include "util/PathName.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/messaging/Message.h"
#include "vexa/messaging/XConnectClient.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

json dictionaryOf(const AppFile& app) {
  return Json2Model::getDictionaryByObject(&app).value_or(json::object());
}

bool startsWithAny(const std::string& path, const std::vector<std::string>& prefixes) {
  return std::any_of(prefixes.begin(), prefixes.end(),
                     [&](const std::string& prefix) { return PathName::hasPrefix(path, prefix); });
}

// Two records of one application, as far as the host is concerned: the dates of last use change
// whenever the application is merely read.
bool sameApplication(const AppFile& a, const AppFile& b) {
  AppFile x = a, y = b;
  x.lastUseDate = y.lastUseDate = 0;
  x.usedCount = y.usedCount = 0;
  return x.toJSON() == y.toJSON();
}

bool isInTrash(const std::string& path) {
  const auto trash = MonitorString::userTrashPath();
  return trash && PathName::hasPrefix(path, *trash);
}

// Icons go to the cache folder as it is when the builder is made.
AppRecordBuilder recordBuilder(const MonitorApplication& monitor) {
  return AppRecordBuilder(monitor.osxVersion(), AppIconCache(monitor.cacheFolderPath()),
                          monitor.packageDatabase());
}

std::vector<std::string> stringsOf(const json& list) {
  std::vector<std::string> strings;
  for (const auto& item : list) {
    if (item.is_string()) strings.push_back(item.get<std::string>());
  }
  return strings;
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
      queue_(DispatchQueue::global()),
      announcer_(std::make_unique<HostAnnouncer>(server, "vexa.monitors.application.host")),
      cache_(std::make_unique<ApplicationCache>()),
      osxVersion_(MonitorString::osVersion()),
      systemFilter_(ApplicationFilters::systemFilter()),
      specialFilter_(ApplicationFilters::specialFilter()),
      groupFilter_(ApplicationFilters::groupFilter()),
      packages_(PackageDatabase::system()) {
  AppFile::registerModelClass();
}

MonitorApplication::~MonitorApplication() = default;

std::shared_ptr<MonitorApplicationDelegate> MonitorApplication::delegate() const {
  std::lock_guard lock(fieldsMutex_);
  return delegate_;
}

void MonitorApplication::setDelegate(std::shared_ptr<MonitorApplicationDelegate> delegate) {
  std::lock_guard lock(fieldsMutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<PackageDatabase> MonitorApplication::packageDatabase() const {
  std::lock_guard lock(fieldsMutex_);
  return packages_;
}

void MonitorApplication::setPackageDatabase(std::shared_ptr<PackageDatabase> packages) {
  std::lock_guard lock(fieldsMutex_);
  packages_ = std::move(packages);
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
  Records records;
  {
    std::lock_guard lock(lock_);
    records = apps_;
  }
  std::map<std::string, std::shared_ptr<AppFile>> copy;
  for (const auto& [path, app] : records) copy.emplace(path, std::make_shared<AppFile>(*app));
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
      cacheFolderPath_ = ApplicationCache::defaultFolder();
      cacheFilePath_ = (fs::path(cacheFolderPath_) / kCacheFileName).string();
    }
  }
  ApplicationCache::makeFolder(cacheFolderPath());
  if (PathName::exists(cacheFilePath())) {
    unarchiver();
    flushCacheData();
  } else {
    queryAllInstalledAppWithFilter({"/"});
    archiver();
  }
  auto self = shared_from_this();
  for (const auto& path : ApplicationFolders::watchedFolders())
    dispatch_.addMonitorPath(path, self);
}

void MonitorApplication::stopMonotor() {
  auto self = shared_from_this();
  for (const auto& path : ApplicationFolders::watchedFolders())
    dispatch_.removeMonitorPath(path, self);
}

void MonitorApplication::archiver() {
  Snapshot snapshot;
  {
    std::lock_guard lock(lock_);
    snapshot = snapshotLocked();
  }
  writeCache(snapshot);
}

MonitorApplication::Snapshot MonitorApplication::snapshotLocked() {
  return {apps_, ++cacheGeneration_};
}

void MonitorApplication::writeCache(const Snapshot& snapshot) {
  cache_->store(cacheFolderPath(), cacheFilePath(), snapshot.records, snapshot.generation);
}

void MonitorApplication::unarchiver() {
  auto records = ApplicationCache::read(cacheFilePath());
  if (!records) return;
  std::lock_guard lock(lock_);
  appsCreated_ = true;
  for (auto& [path, app] : *records) apps_[path] = std::move(app);
}

void MonitorApplication::queryAllInstalledAppWithFilter(const std::vector<std::string>& filter) {
  auto records = ApplicationInventory::take(filter, recordBuilder(*this), queue_);
  std::lock_guard lock(lock_);
  for (auto& [path, app] : records) apps_[path] = std::move(app);
}

bool MonitorApplication::isApplication(const std::string& path) const {
  // What its metadata kind says; gone already (a deletion), what its name says.
  return PathName::exists(path) ? AppBundle::isApplication(path)
                                : AppBundle::hasApplicationName(path);
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

std::shared_ptr<const AppFile> MonitorApplication::recordAt(const std::string& path) const {
  std::lock_guard lock(lock_);
  auto it = apps_.find(path);
  return it == apps_.end() ? nullptr : it->second;
}

std::function<void()> MonitorApplication::announcement(const std::string& name,
                                                       const std::string& path,
                                                       const AppFile& app) const {
  const auto prefixes = installPaths();
  if (!prefixes || !startsWithAny(path, *prefixes)) return {};
  return announcer_->prepare(Message(name, {{"AppFile", dictionaryOf(app)}}));
}

void MonitorApplication::installApp(const std::string& path) {
  if (PathName::exists(path)) install(path, AppBundle::open(path));
}

void MonitorApplication::install(const std::string& path, std::unique_ptr<AppBundle> bundle,
                                 bool onlyWhenChanged) {
  if (!bundle) return;
  auto app = std::make_shared<AppFile>();
  if (!recordBuilder(*this).fill(*bundle, *app)) return;
  bundle.reset();  // an AppImage's unpacked files go now, not under the lock
  auto send = announcement("InstallCommand", path, *app);
  std::lock_guard lock(lock_);
  if (onlyWhenChanged) {
    auto it = apps_.find(path);
    if (it != apps_.end() && sameApplication(*it->second, *app)) return;
  }
  apps_[path] = std::move(app);
  announcer_->post(std::move(send));
}

void MonitorApplication::installRecorded(const std::string& path, bool onlyWhenChanged,
                                         int waited) {
  auto packages = packageDatabase();
  if (packages && waited < kPackageWaitTurns && !packages->caughtUpWith(path)) {
    std::weak_ptr<MonitorApplication> weak = weak_from_this();
    queue_.after(kPackageWaitSeconds / kPackageWaitTurns, [weak, path, onlyWhenChanged, waited] {
      if (auto self = weak.lock()) self->installRecorded(path, onlyWhenChanged, waited + 1);
    });
    return;
  }
  install(path, AppBundle::open(path), onlyWhenChanged);
}

void MonitorApplication::uninstallApp(const std::string& path) {
  if (!recordAt(path)) uninstall(path, AppBundle::open(path));
}

void MonitorApplication::uninstall(const std::string& path, std::unique_ptr<AppBundle> bundle) {
  // A record that does not fill is still reported to the delegate and the host, unstored.
  auto app = std::make_shared<AppFile>();
  app->needForceRemove = true;
  const bool filled = bundle && recordBuilder(*this).fill(*bundle, *app);
  bundle.reset();
  auto send = announcement("UninstallCommand", path, *app);
  Snapshot snapshot;
  {
    std::lock_guard lock(lock_);
    if (apps_.count(path)) return;  // another event recorded it meanwhile
    if (filled) apps_[path] = app;
    snapshot = snapshotLocked();
    announcer_->post(std::move(send));
  }
  if (auto listener = delegate()) listener->appRemoved(std::make_shared<AppFile>(*app));
  writeCache(snapshot);
}

void MonitorApplication::removeApp(const std::string& path, double seconds) {
  auto app = recordAt(path);
  if (!app) return;
  std::weak_ptr<MonitorApplication> weak = weak_from_this();
  queue_.after(seconds, [weak, path, app] {
    auto self = weak.lock();
    if (self && !PathName::exists(path)) self->confirmRemoval(path, app);
  });
}

void MonitorApplication::confirmRemoval(const std::string& path,
                                        const std::shared_ptr<const AppFile>& app) {
  auto marked = std::make_shared<AppFile>(*app);
  marked->needForceRemove = true;
  Snapshot snapshot;
  {
    std::lock_guard lock(lock_);
    // A record made again for the path since (a new install) is not this one: it stays. A
    // record marked already was reported by an earlier check (the event came twice).
    auto it = apps_.find(path);
    if (it == apps_.end() || it->second != app) return;
    it->second = marked;
    snapshot = snapshotLocked();
  }
  writeCache(snapshot);
  if (auto listener = delegate()) listener->appRemoved(std::make_shared<AppFile>(*marked));
}

// Each event opens the path once: the bundle that tells it is an application also fills the
// record. Only a path that does not open is asked again, by its metadata and name.
void MonitorApplication::fileCreated(const std::string& path) {
  if (isInTrash(path)) return;
  installRecorded(path, false);
}

void MonitorApplication::fileMoveIn(const std::string& path) {
  if (!isInTrash(path)) {
    installRecorded(path, false);
  } else if (!recordAt(path)) {  // else heard again: the dispatcher repeats
    auto bundle = AppBundle::open(path);
    if (bundle || isApplication(path)) uninstall(path, std::move(bundle));
  }
}

// Only a recorded application can be moved out or removed, so the table is asked before the
// file system: a Trash emptied or a build tree deleted is thousands of events about other files.
void MonitorApplication::fileMoveOut(const std::string& path) {
  if (!recordAt(path) || !isApplication(path)) return;
  std::lock_guard lock(lock_);
  apps_.erase(path);
}

void MonitorApplication::fileMoveOrRename(const std::string& source, const std::string& target) {
  const bool fromApplication = AppBundle::hasApplicationName(source);
  const bool toApplication = AppBundle::hasApplicationName(target);
  if (toApplication && !fromApplication) {
    if (!isInTrash(target)) installRecorded(target, true);
  } else if (fromApplication && !toApplication) {
    removeApp(source, kRemoveDelaySeconds);
  }
}

void MonitorApplication::fileRemove(const std::string& path) {
  if (recordAt(path) && isApplication(path)) removeApp(path, kRemoveDelaySeconds);
}

void MonitorApplication::eventsLost(const std::string& folder) {
  // What is installed under the folder now is compared with the table: applications that
  // appeared unseen are installed as if created, recorded ones that are gone get the delayed
  // check of a deletion. Applications still in place are not read again.
  std::set<std::string> present;
  for (const auto& found : ApplicationFolders::allApplications()) {
    std::string path = AppFile::formatAppPath(found);
    if (PathName::isWithin(path, folder)) present.insert(std::move(path));
  }
  std::vector<std::string> added, gone;
  {
    std::lock_guard lock(lock_);
    for (const auto& path : present) {
      if (!apps_.count(path) && !isInTrash(path)) added.push_back(path);
    }
    for (const auto& [path, app] : apps_) {
      if (!app->needForceRemove && PathName::isWithin(path, folder) && !present.count(path)) {
        gone.push_back(path);
      }
    }
  }
  parallelFor(queue_, added.size(),
              [&](std::size_t i) { install(added[i], AppBundle::open(added[i]), true); });
  for (const auto& path : gone) {
    if (!PathName::exists(path)) removeApp(path, kRemoveDelaySeconds);
  }
}

void MonitorApplication::setInstallPaths(const json& paths) {
  if (paths.is_array()) setInstallPaths(std::optional(stringsOf(paths)));
}

void MonitorApplication::clearForceRemovedApp(const json& paths) {
  if (paths.is_array() && !paths.empty()) clearForceRemovedApp(stringsOf(paths));
}

void MonitorApplication::hostConnected(const std::shared_ptr<XConnectClient>& connection) {
  sendRemoveAppToClient(connection);
}

bool MonitorApplication::wBscInfoFrPath(const std::string& path, AppFile& app) const {
  return recordBuilder(*this).fill(path, app);
}

void MonitorApplication::formatAppPath(std::string& path) { path = AppFile::formatAppPath(path); }

std::optional<std::string> MonitorApplication::getOrCreateIconPath(
    const json& info, const std::string& path, const std::optional<std::string>& cacheName) const {
  return AppIconCache(cacheFolderPath()).iconPathFor(info, path, cacheName);
}

std::string MonitorApplication::createThumb(const std::string& source,
                                            const std::string& cacheName) const {
  return AppIconCache(cacheFolderPath()).createThumb(source, cacheName);
}

std::shared_ptr<Image> MonitorApplication::getDefaultAppIcon() const {
  return AppIconCache::defaultIcon();
}

std::optional<json> MonitorApplication::dicForMDItem(
    const std::string& path, const std::optional<std::vector<std::string>>& names) {
  if (!names) return std::nullopt;
  auto attributes = ItemMetadata::attributes(path, *names);
  // The file system cannot say an item is an application; reading the item can.
  if (attributes && attributes->contains("kMDItemKind") && AppBundle::isApplication(path)) {
    (*attributes)["kMDItemKind"] = "application";
  }
  return attributes;
}

std::optional<std::string> MonitorApplication::pathForAppWithIdentifier(
    const std::string& identifier) {
  return ApplicationFolders::pathForIdentifier(identifier);
}

}  // namespace vexa
