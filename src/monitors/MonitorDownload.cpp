#include "vexa/monitors/MonitorDownload.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <unordered_set>

#include "monitors/BrowserDownloads.h"
#include "monitors/BrowserFolders.h"
#include "monitors/CachedPathList.h"
#include "monitors/FindInventory.h"
#include "util/PathName.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

MonitorDownload& MonitorDownload::shared() {
  static auto* instance = new std::shared_ptr<MonitorDownload>(
      new MonitorDownload(MonitorDispatch::shared(), XSocketServer::shared(), nullptr, nullptr));
  return **instance;
}

std::shared_ptr<MonitorDownload> MonitorDownload::create(
    MonitorDispatch& dispatch, XSocketServer& server,
    const std::shared_ptr<const BrowserFolders>& folders,
    std::shared_ptr<const FindInventory> inventory) {
  return std::shared_ptr<MonitorDownload>(
      new MonitorDownload(dispatch, server, folders, std::move(inventory)));
}

MonitorDownload::MonitorDownload(MonitorDispatch& dispatch, XSocketServer& server,
                                 const std::shared_ptr<const BrowserFolders>& folders,
                                 std::shared_ptr<const FindInventory> inventory)
    : dispatch_(dispatch),
      queue_(DispatchQueue::global()),
      inventory_(inventory ? std::move(inventory) : std::make_shared<FindInventory>()),
      list_(CachedPathList::create(
          {kCacheFileName, "Download", "DownloadAdd", "DownloadRemove", "", ""}, server)) {
  std::weak_ptr<CachedPathList> list = list_;
  DispatchQueue* queue = &queue_;
  rules_ = BrowserDownloads::create(
      folders ? *folders : BrowserFolders(BrowserFolders::current()),
      [list](const std::string& path) {
        // Paths no message can carry are not announced.
        auto host = list.lock();
        if (host && CachedPathList::canCarry(path)) host->announce("DownloadComplete", path);
      },
      [queue](double seconds, std::function<void()> work) {
        if (seconds <= 0) {
          queue->async(std::move(work));
        } else {
          queue->after(seconds, std::move(work));
        }
      });
}

MonitorDownload::~MonitorDownload() = default;

std::string MonitorDownload::cacheFolderPath() const { return list_->cacheFolderPath(); }

void MonitorDownload::setCacheFolderPath(const std::string& folder) {
  list_->setCacheFolderPath(folder);
}

std::string MonitorDownload::cacheDownloadFilePath() const { return list_->cacheFilePath(); }

std::vector<std::string> MonitorDownload::downloads() const { return list_->paths(); }

std::map<std::string, std::string> MonitorDownload::browserDownloadPaths() const {
  return rules_->browserDownloadPaths();
}

bool MonitorDownload::isDownloads(const std::string& path) {
  return BrowserDownloads::isDownloads(path);
}

void MonitorDownload::profileMonitor() { rules_->profileMonitor(); }

void MonitorDownload::startMonitor() {
  profileMonitor();
  rules_->clearDownloadFolderChanged();
  const std::string home = MonitorString::userHomePath();
  {
    std::lock_guard lock(fieldsMutex_);
    home_ = home;
    trash_ = MonitorString::userTrashPath().value_or("");
  }
  list_->clear();
  list_->makeCacheFolder();
  unarchiver();
  dispatch_.addMonitorPath(home, shared_from_this());
  watchOutsideFolders();
}

void MonitorDownload::stopMonotor() {
  std::string home;
  std::set<std::string> outside;
  {
    std::lock_guard lock(fieldsMutex_);
    home = home_;
    outside.swap(outside_);
  }
  auto self = shared_from_this();
  if (!home.empty()) dispatch_.removeMonitorPath(home, self);
  for (const auto& folder : outside) dispatch_.removeMonitorPath(folder, self);
}

void MonitorDownload::watchOutsideFolders() {
  std::string home;
  {
    std::lock_guard lock(fieldsMutex_);
    home = home_;
  }
  if (home.empty()) return;
  std::set<std::string> wanted;
  for (const auto& folder : rules_->downloadFolders()) {
    if (!PathName::isWithin(folder, home)) wanted.insert(folder);
  }
  std::set<std::string> old;
  {
    std::lock_guard lock(fieldsMutex_);
    old = outside_;
    outside_ = wanted;
  }
  auto self = shared_from_this();
  for (const auto& folder : old) {
    if (!wanted.count(folder)) dispatch_.removeMonitorPath(folder, self);
  }
  for (const auto& folder : wanted) {
    if (!old.count(folder)) dispatch_.addMonitorPath(folder, self);
  }
}

std::vector<std::string> MonitorDownload::queryAllDownload(std::vector<std::string> folders) const {
  std::sort(folders.begin(), folders.end());
  std::vector<std::string> patterns;
  patterns.reserve(BrowserDownloads::extRules.size());
  for (const char* extension : BrowserDownloads::extRules) {
    patterns.push_back(std::string("*.") + extension);
  }
  std::vector<std::string> found;
  std::unordered_set<std::string> seen;
  for (const auto& folder : folders) {
    if (!PathName::isFolder(folder)) continue;
    for (auto& path : inventory_->run(FindInventory::command(folder, "", patterns))) {
      if (seen.insert(path).second) found.push_back(std::move(path));
    }
  }
  return found;
}

void MonitorDownload::unarchiver() {
  if (list_->load() == CachedPathList::Loaded::Missing) {
    list_->addSilently(queryAllDownload(rules_->downloadFolders()));
    archiver();
    return;
  }
  if (list_->paths().empty()) return;
  std::weak_ptr<MonitorDownload> weak = weak_from_this();
  queue_.async([weak] {
    auto self = weak.lock();
    if (!self) return;
    for (const auto& path : self->queryAllDownload(self->rules_->downloadFolders())) {
      if (PathName::entryExists(path)) self->list_->add(path);
    }
  });
}

void MonitorDownload::archiver() { list_->write(); }

bool MonitorDownload::inTrash(const std::string& path) const {
  std::lock_guard lock(fieldsMutex_);
  return !trash_.empty() && PathName::isWithin(path, trash_);
}

void MonitorDownload::addDownload(const std::string& path) {
  // A partial file in the Trash is a download given up, not one in progress.
  if (!inTrash(path)) list_->addLater(path);
}

void MonitorDownload::removeDownload(const std::string& path) { list_->removeLater(path); }

void MonitorDownload::partialGone(const std::string& path) {
  removeDownload(path);
  if (inTrash(path)) return;
  std::weak_ptr<BrowserDownloads> weak = rules_;
  const auto type = BrowserDownloads::browserType(path);
  const std::string finished = BrowserDownloads::withoutExtension(path);
  queue_.async([weak, finished, type] {
    if (auto rules = weak.lock()) rules->checkDownload(finished, type);
  });
}

void MonitorDownload::settingsChanged() {
  std::lock_guard serial(settingsMutex_);
  rules_->profileMonitor();
  if (!rules_->downloadFolderChanged()) return;
  rules_->clearDownloadFolderChanged();
  watchOutsideFolders();
  for (const auto& path : queryAllDownload(rules_->downloadFolders())) addDownload(path);
}

void MonitorDownload::fileCreated(const std::string& path) {
  if (rules_->isSettingsFile(path)) settingsChanged();
  if (isDownloads(path)) addDownload(path);
}

void MonitorDownload::fileMoveIn(const std::string& path) { fileCreated(path); }

void MonitorDownload::fileMoveOut(const std::string& path) {
  if (rules_->isSettingsFile(path)) settingsChanged();
  if (isDownloads(path)) partialGone(path);
}

void MonitorDownload::fileMoveOrRename(const std::string& source, const std::string& target) {
  if (rules_->isSettingsFile(source) || rules_->isSettingsFile(target)) settingsChanged();
  if (isDownloads(target)) {
    if (isDownloads(source)) removeDownload(source);
    addDownload(target);
    return;
  }
  if (!isDownloads(source)) return;
  removeDownload(source);
  if (inTrash(target) || !CachedPathList::canCarry(target)) return;
  // The browser gave the finished file its name.
  std::weak_ptr<BrowserDownloads> weak = rules_;
  const auto type = BrowserDownloads::browserType(source);
  queue_.async([weak, target, type] {
    if (auto rules = weak.lock()) rules->checkDownload(target, type);
  });
}

void MonitorDownload::fileRemove(const std::string& path) {
  if (rules_->isSettingsFile(path)) settingsChanged();
  if (isDownloads(path)) partialGone(path);
}

void MonitorDownload::fileModify(const std::string& path) {
  if (rules_->isSettingsFile(path)) settingsChanged();
  if (path == rules_->safariFolder() || path == rules_->safariDLPlist()) {
    std::error_code ec;
    const auto modified = std::filesystem::last_write_time(rules_->safariDLPlist(), ec);
    if (!ec) {
      rules_->setModifyDate(std::chrono::duration<double>(modified.time_since_epoch()).count());
    }
  }
}

bool MonitorDownload::hearsPath(const std::string& path) const {
  return BrowserDownloads::mayMatter(path);
}

}  // namespace vexa
