#include "vexa/monitors/WatchDownload.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include "monitors/BrowserDownloads.h"
#include "monitors/BrowserFolders.h"
#include "monitors/PathList.h"
#include "monitors/ScanTarget.h"
#include "monitors/WeakQueueDelegate.h"
#include "util/PathName.h"
#include "vexa/events/FSWatchQueue.h"
#include "vexa/events/WatchQueueNotifications.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"
#include "vexa/util/Utilities.h"

namespace vexa {

namespace {

std::optional<struct stat> statOf(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return std::nullopt;
  return st;
}

std::optional<double> modificationSeconds(const std::string& path) {
  auto st = statOf(path);
  if (!st) return std::nullopt;
  return static_cast<double>(st->st_mtim.tv_sec) + static_cast<double>(st->st_mtim.tv_nsec) / 1e9;
}

bool contains(const std::vector<std::string>& sorted, const std::string& path) {
  return std::binary_search(sorted.begin(), sorted.end(), path);
}

}  // namespace

WatchDownload& WatchDownload::shared() {
  static auto* instance = new std::shared_ptr<WatchDownload>(create());
  return **instance;
}

std::shared_ptr<WatchDownload> WatchDownload::create(
    const std::shared_ptr<const BrowserFolders>& folders) {
  std::shared_ptr<WatchDownload> watch(
      new WatchDownload(folders ? *folders : BrowserFolders(BrowserFolders::current())));
  std::weak_ptr<WatchDownload> weak = watch;
  if (watch->queue_) watch->queue_->setDelegate(std::make_shared<WeakQueueDelegate>(weak));
  watch->rules_ = BrowserDownloads::create(
      *watch->folders_,
      [weak](const std::string& path) {
        if (auto self = weak.lock()) self->deliver(path);
      },
      [](double seconds, std::function<void()> work) {
        // Safari's history is read on a worker; the archive re-check waits on the main loop,
        // where the event that asked for it came.
        if (seconds <= 0) {
          DispatchQueue::global().async(std::move(work));
        } else {
          DispatchQueue::main().after(seconds, std::move(work));
        }
      });
  return watch;
}

WatchDownload::WatchDownload(const BrowserFolders& folders)
    : queue_(FSWatchQueue::create()), folders_(std::make_unique<BrowserFolders>(folders)) {}

WatchDownload::~WatchDownload() = default;

std::shared_ptr<WatchDownloadDelegate> WatchDownload::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_;
}

void WatchDownload::setDelegate(std::shared_ptr<WatchDownloadDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

void WatchDownload::deliver(const std::string& path) {
  // A check that was waiting when the watch stopped tells nothing.
  auto tell = [weak = weak_from_this(), path] {
    auto self = weak.lock();
    std::shared_ptr<WatchDownloadDelegate> delegate;
    if (self) {
      std::lock_guard lock(self->mutex_);
      if (self->watching_) delegate = self->delegate_;
    }
    if (delegate) delegate->downloadFileCompleted(path);
  };
  if (RunLoop::isMainThread()) {
    tell();
  } else {
    RunLoop::main().post(std::move(tell));
  }
}

void WatchDownload::startWatch(int* stop) {
  {
    std::lock_guard lock(mutex_);
    isStop_ = stop;
    watching_ = true;
  }
  refreshPreferences();
  rules_->clearDownloadFolderChanged();
  watchDownloadFolders(rules_->downloadFolders());
  if (auto date = modificationSeconds(rules_->safariDLPlist())) rules_->setModifyDate(*date);
}

void WatchDownload::stopWatch() {
  int* stop = nullptr;
  {
    std::lock_guard lock(mutex_);
    watching_ = false;
    stop = std::exchange(isStop_, nullptr);
    prevDownloadFolder_.clear();
    watchDownload_.clear();
    currDownload_.clear();
    preferencesFolders_.clear();
    safariFolder_.clear();
    settings_.clear();
    settingsFiles_.clear();
    standIns_.clear();
    if (queue_) queue_->removeAllPaths();
  }
  if (stop) std::atomic_ref<int>(*stop).store(1, std::memory_order_relaxed);
  // A scan under way reads the caller's flag: it ends at its next entry, and once this returns
  // nothing here touches the flag again.
  std::lock_guard scanned(scanMutex_);
}

void WatchDownload::fillDownloadPath(const std::string& path) {
  std::lock_guard lock(mutex_);
  currDownload_.insert(path);
}

void WatchDownload::notifyDownloadCompleted(const std::string& path, uint32_t browserType) {
  rules_->checkDownload(path, static_cast<BrowserDownloads::BrowserType>(browserType));
}

void WatchDownload::profileMonitor() { rules_->profileMonitor(); }

void WatchDownload::setModifyDate(double seconds) { rules_->setModifyDate(seconds); }

std::optional<std::string> WatchDownload::getLatelyPathForSafariDl(const std::string& path) {
  return BrowserDownloads::getLatelyPathForSafariDl(path);
}

std::vector<std::string> WatchDownload::downloadFolders() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> folders = prevDownloadFolder_;
  std::sort(folders.begin(), folders.end());
  return folders;
}

std::vector<std::string> WatchDownload::partialFiles() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> paths;
  paths.reserve(watchDownload_.size());
  for (const auto& entry : watchDownload_) paths.push_back(entry->path());
  return paths;
}

std::vector<std::string> WatchDownload::preferencesFolders() const {
  std::lock_guard lock(mutex_);
  return preferencesFolders_;
}

std::map<std::string, std::string> WatchDownload::browserDownloadPaths() const {
  return rules_->browserDownloadPaths();
}

std::vector<std::string> WatchDownload::safariDlsCache() const { return rules_->safariCache(); }

void WatchDownload::watchDownloadFolders(const std::vector<std::string>& folders) {
  {
    std::lock_guard lock(mutex_);
    if (!watching_) return;
    for (const auto& folder : std::exchange(prevDownloadFolder_, {})) unwatchLocked(folder);
    currDownload_.clear();
    // A folder that cannot be watched (missing) is left out until the table changes again.
    for (const auto& folder : folders) {
      if (queue_ && queue_->addPathToQueue(folder, kDownloadFolderMask)) {
        PathList::add(prevDownloadFolder_, folder);
      }
    }
  }
  for (const auto& folder : downloadFolders()) scan(folder);
}

void WatchDownload::updateDownloadFolders(const std::vector<std::string>& folders) {
  std::lock_guard lock(mutex_);
  if (!watching_) return;
  for (const auto& folder : std::vector<std::string>(prevDownloadFolder_)) {
    if (contains(folders, folder)) continue;
    PathList::remove(prevDownloadFolder_, folder);
    unwatchLocked(folder);
  }
  for (const auto& folder : folders) {
    if (!PathList::contains(prevDownloadFolder_, folder) && queue_ &&
        queue_->addPathToQueue(folder, kDownloadFolderMask)) {
      prevDownloadFolder_.push_back(folder);
    }
  }
}

void WatchDownload::scan(const std::string& folder) {
  std::lock_guard scanned(scanMutex_);
  int* stop = nullptr;
  {
    std::lock_guard lock(mutex_);
    if (!watching_) return;
    stop = isStop_;
  }
  {
    const ScanTarget<WatchDownload> target(*this);
    trv_sub_download(folder.c_str(), downloadcallback, stop);
  }
  std::set<std::string> found;
  {
    std::lock_guard lock(mutex_);
    found.swap(currDownload_);
  }
  watchPartialFiles(std::move(found));
}

void WatchDownload::watchPartialFiles(std::set<std::string> found) {
  size_t refused = 0;
  std::lock_guard lock(mutex_);
  if (!watching_ || !queue_) return;
  while (!found.empty()) {
    // The scan's records are freed as they are passed: the queue's entry keeps the path.
    auto record = found.extract(found.begin());
    const std::string& path = record.value();
    if (watchDownload_.contains(path)) continue;
    // One that cannot be watched now (the watch limit reached) is tried again at the next scan.
    if (auto entry = queue_->addPathToQueue(path, kPartialFileMask)) {
      watchDownload_.insert(std::move(entry));
    } else if (PathName::entryExists(path)) {
      ++refused;  // not one that went since the scan
    }
  }
  // Told once each time the limit is reached, not at every scan while it holds.
  if (refused > 0 && !limitLogged_) {
    SystemLog::log(
        "%zu partial downloads could not be watched (the limit is fs.inotify.max_user_watches); "
        "%zu are",
        refused, watchDownload_.size());
  }
  limitLogged_ = refused > 0;
}

std::map<std::string, WatchDownload::Identity> WatchDownload::identitiesOf(
    const std::vector<std::string>& files) {
  std::map<std::string, Identity> identities;
  for (const auto& file : files) {
    Identity identity{};
    if (auto st = statOf(file)) {
      identity = {static_cast<int64_t>(st->st_dev), static_cast<int64_t>(st->st_ino),
                  static_cast<int64_t>(st->st_size),
                  static_cast<int64_t>(st->st_mtim.tv_sec) * 1000000000 + st->st_mtim.tv_nsec};
    }
    identities[file] = identity;
  }
  return identities;
}

void WatchDownload::watchPreferences(const std::vector<std::string>& folders) {
  std::string safari = rules_->safariFolder();
  if (safari.empty() || safari[0] != '/' || !PathName::isFolder(safari)) safari.clear();
  std::lock_guard lock(mutex_);
  if (!watching_) return;
  const auto old = std::exchange(preferencesFolders_, folders);
  const std::string oldSafari = std::exchange(safariFolder_, safari);
  for (const auto& folder : old) {
    if (!contains(folders, folder)) unwatchLocked(folder);
  }
  if (!oldSafari.empty() && oldSafari != safari) unwatchLocked(oldSafari);
  if (!queue_) return;
  for (const auto& folder : folders) queue_->addPathToQueue(folder, kPreferencesMask);
  if (!safari.empty()) queue_->addPathToQueue(safari, kPreferencesMask);
}

bool WatchDownload::refreshPreferences() {
  const auto files = folders_->settingsFiles();
  const auto folders = folders_->settingsFolders(files);
  // The folders are watched before the files are looked at: a file written into a folder made
  // since (a browser's first run) is either seen now or heard later.
  watchPreferences(folders);
  std::set<std::string> standIns;
  for (const auto& file : files) {
    std::string folder = PathName::parent(file);
    if (contains(folders, folder)) continue;
    while (!contains(folders, folder) && folder != PathName::parent(folder)) {
      folder = PathName::parent(folder);
    }
    if (contains(folders, folder)) standIns.insert(folder);
  }
  auto identities = identitiesOf(files);
  bool changed = false;
  {
    std::lock_guard lock(mutex_);
    if (!watching_) return false;
    changed = identities != settings_;
    settings_ = std::move(identities);
    settingsFiles_ = files;
    standIns_ = std::move(standIns);
  }
  if (changed) profileMonitor();
  return changed;
}

void WatchDownload::preferencesChanged(const std::string& folder) {
  // A busy profile folder is written many times a minute, and its settings seldom change. A
  // write in a folder tells only of its entries: the settings files in it are looked at, and
  // read again only when one changed.
  std::vector<std::string> files;
  bool standIn = false;
  {
    std::lock_guard lock(mutex_);
    for (const auto& file : settingsFiles_) {
      if (PathName::parent(file) == folder) files.push_back(file);
    }
    standIn = standIns_.count(folder) > 0;
  }
  if (!standIn) {
    const auto identities = identitiesOf(files);
    std::lock_guard lock(mutex_);
    const bool same = std::all_of(identities.begin(), identities.end(), [&](const auto& entry) {
      auto known = settings_.find(entry.first);
      return known != settings_.end() && known->second == entry.second;
    });
    if (same) return;
  }
  if (!refreshPreferences() || !rules_->downloadFolderChanged()) return;
  updateDownloadFolders(rules_->downloadFolders());
  rules_->clearDownloadFolderChanged();
}

void WatchDownload::unwatchLocked(const std::string& path) {
  if (!queue_ || PathList::contains(prevDownloadFolder_, path) || watchDownload_.contains(path) ||
      contains(preferencesFolders_, path) || path == safariFolder_) {
    return;
  }
  queue_->removePath(path);
}

std::pair<bool, bool> WatchDownload::forget(const std::string& path) {
  std::lock_guard lock(mutex_);
  const bool folder = PathList::contains(prevDownloadFolder_, path);
  PathList::remove(prevDownloadFolder_, path);
  const bool partial = watchDownload_.erase(path) != nullptr;
  return {folder, partial};
}

void WatchDownload::unwatchLater(const std::string& path) {
  RunLoop::main().post([weak = weak_from_this(), path] {
    auto self = weak.lock();
    if (!self) return;
    std::lock_guard lock(self->mutex_);
    self->unwatchLocked(path);
  });
}

void WatchDownload::watchQueueReceivedNotification(FSWatchQueue& queue, const std::string& name,
                                                   const std::string& path) {
  if (!PathName::exists(path)) {
    forget(path);
    std::lock_guard lock(mutex_);
    if (!contains(preferencesFolders_, path) && path != safariFolder_) queue.removePath(path);
    return;
  }
  if (name != WatchQueueWriteNotification) return;
  bool preferences = false, safari = false, download = false;
  {
    std::lock_guard lock(mutex_);
    preferences = contains(preferencesFolders_, path);
    safari = path == safariFolder_;
    download = PathList::contains(prevDownloadFolder_, path);
  }
  if (preferences) preferencesChanged(path);
  if (safari) {
    if (auto date = modificationSeconds(rules_->safariDLPlist())) setModifyDate(*date);
  }
  if (download) scan(path);
}

void WatchDownload::watchQueueDeleted(FSWatchQueue& queue, const std::string& path) {
  (void)queue;
  const bool partial = forget(path).second;
  // The browser gave the partial file's content to the final name (or the download was
  // cancelled, and the final name does not exist).
  if (partial) {
    notifyDownloadCompleted(BrowserDownloads::withoutExtension(path),
                            BrowserDownloads::browserType(path));
  }
}

void WatchDownload::watchQueueRename(FSWatchQueue& queue, const std::string& newPath,
                                     const std::string& oldPath) {
  const auto [folder, partial] = forget(oldPath);
  if (!folder && !partial) return;
  if (partial && BrowserDownloads::isDownloads(newPath)) {
    // Renamed to another partial name ("Unconfirmed 1.crdownload" to "f.pdf.crdownload" once
    // the target is chosen): still downloading. The queue's watch follows it once this returns;
    // its entry for the new path is made here, to be kept.
    std::lock_guard lock(mutex_);
    if (auto entry = queue.addPathToQueue(newPath, kPartialFileMask)) {
      watchDownload_.insert(std::move(entry));
    }
    return;
  }
  unwatchLater(newPath);
  if (partial) notifyDownloadCompleted(newPath, BrowserDownloads::browserType(oldPath));
}

void WatchDownload::watchQueueRemoveToTrash(FSWatchQueue& queue, const std::string& trashedPath,
                                            const std::string& oldPath) {
  (void)queue, (void)trashedPath;
  forget(oldPath);
  std::lock_guard lock(mutex_);
  unwatchLocked(oldPath);
}

}  // namespace vexa

extern "C" {

void downloadcallback(const char* path) {
  if (!path) return;
  vexa::ScanTarget<vexa::WatchDownload>::get().fillDownloadPath(path);
}

}  // extern "C"
