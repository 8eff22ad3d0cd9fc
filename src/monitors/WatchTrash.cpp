#include "vexa/monitors/WatchTrash.h"

#include <sys/stat.h>

#include <atomic>
#include <optional>
#include <set>

#include "monitors/AppBundle.h"
#include "monitors/AppWalkHook.h"
#include "monitors/CoalescingTask.h"
#include "monitors/PathList.h"
#include "monitors/ScanTarget.h"
#include "monitors/TrashFolder.h"
#include "monitors/VolumeTrashes.h"
#include "monitors/WeakQueueDelegate.h"
#include "util/MountWatch.h"
#include "util/PathName.h"
#include "vexa/events/FSWatchQueue.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"
#include "vexa/util/Utilities.h"

namespace vexa {

namespace {

// The list a walk of an item moved into the Trash fills (folder_app_callback's).
thread_local std::vector<std::string>* movedApps = nullptr;

bool isApplicationName(const std::string& path) { return AppBundle::hasApplicationName(path); }

std::pair<uint64_t, uint64_t> identityOf(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return {0, 0};
  return {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
}

}  // namespace

WatchTrash& WatchTrash::shared() {
  static auto* instance = new std::shared_ptr<WatchTrash>(create());
  return **instance;
}

std::shared_ptr<WatchTrash> WatchTrash::create(std::string mountTable) {
  std::shared_ptr<WatchTrash> watch(new WatchTrash(std::move(mountTable)));
  std::weak_ptr<WatchTrash> weak = watch;
  if (watch->queue_) watch->queue_->setDelegate(std::make_shared<WeakQueueDelegate>(weak));
  watch->scanTask_ = std::make_unique<CoalescingTask>(DispatchQueue::global(), [weak] {
    if (auto self = weak.lock()) self->scan();
  });
  return watch;
}

WatchTrash::WatchTrash(std::string mountTable)
    : queue_(FSWatchQueue::create()), mountTable_(std::move(mountTable)) {
  AppWalkHook::install();
}

WatchTrash::~WatchTrash() = default;

std::shared_ptr<TrashWatchDelegate> WatchTrash::delegate() const {
  std::lock_guard lock(lock_);
  return delegate_;
}

void WatchTrash::setDelegate(std::shared_ptr<TrashWatchDelegate> delegate) {
  std::lock_guard lock(lock_);
  delegate_ = std::move(delegate);
}

void WatchTrash::startWatch(int* stop) {
  const std::string trash = TrashFolder::prepare();
  auto mounts =
      trash.empty() ? nullptr : MountWatch::start(mountTable_, [this] { scanTask_->request(); });
  {
    std::lock_guard lock(lock_);
    isStop_ = stop;
    trashPath_ = trash;
    currApps_.clear();
    startPending_ = true;
    watching_ = true;
    if (mounts) mountWatch_ = std::move(mounts);
  }
  if (trash.empty()) return;
  if (RunLoop::isMainThread()) {
    watchTrashes({trash});
  } else {
    RunLoop::main().post([weak = weak_from_this(), trash] {
      if (auto self = weak.lock()) self->watchTrashes({trash});
    });
  }
  scanTask_->request();
}

void WatchTrash::stopWatch() {
  if (queue_) queue_->removeAllPaths();
  int* stop = nullptr;
  std::unique_ptr<MountWatch> mounts;
  {
    std::lock_guard lock(lock_);
    watching_ = false;
    stop = std::exchange(isStop_, nullptr);
    mounts = std::move(mountWatch_);
    trashWatches_.clear();
  }
  if (stop) std::atomic_ref<int>(*stop).store(1, std::memory_order_relaxed);
  // A walk under way reads the caller's flag: it ends at its next entry, and once this returns
  // nothing here touches the flag again.
  std::lock_guard walking(walkMutex_);
}

void WatchTrash::watchTrashes(const std::vector<std::string>& trashes) {
  std::map<std::string, std::pair<uint64_t, uint64_t>> wanted;
  for (const auto& trash : trashes) {
    for (const auto& path : {trash, PathName::parent(trash)}) {
      if (auto identity = TrashFolder::folderIdentity(path)) wanted[path] = *identity;
    }
  }
  std::vector<std::string> drop, add;
  {
    std::lock_guard lock(lock_);
    if (!watching_) return;
    for (const auto& [path, identity] : trashWatches_) {
      auto found = wanted.find(path);
      if (found == wanted.end() || found->second != identity) drop.push_back(path);
    }
    for (const auto& [path, identity] : wanted) {
      auto found = trashWatches_.find(path);
      if (found == trashWatches_.end() || found->second != identity) {
        add.push_back(path);
      } else if (staleTrashes_.count(path) > 0) {
        drop.push_back(path);
        add.push_back(path);
      }
    }
    trashWatches_ = std::move(wanted);
    staleTrashes_.clear();
  }
  if (!queue_) return;
  // A path whose folder was replaced holds a watch on the old folder, or none: watched anew.
  for (const auto& path : drop) queue_->removePath(path);
  for (const auto& path : add) queue_->addPath(path, watchqueue::kWrite);
  // Whatever changed before the new watch was in place is heard by one more scan.
  if (!add.empty()) scanTask_->request();
}

std::vector<std::string> WatchTrash::walk(const std::vector<std::string>& trashes, int* stop) {
  {
    std::lock_guard lock(lock_);
    currApps_.clear();
  }
  {
    const ScanTarget<WatchTrash> target(*this);
    for (const auto& trash : trashes) {
      // A Trash replaced by a link is not followed to wherever it points.
      if (TrashFolder::folderIdentity(trash)) trv_sub_app(trash.c_str(), appcallback, stop);
    }
  }
  std::lock_guard lock(lock_);
  return std::exchange(currApps_, {});
}

void WatchTrash::scan() {
  std::unique_lock walking(walkMutex_);
  std::string trash;
  int* stop = nullptr;
  {
    std::lock_guard lock(lock_);
    trash = trashPath_;
    stop = isStop_;
  }
  if (trash.empty() || !stop) return;
  // Deleted or moved away: made again. Replaced by a link or a file: left alone, told once.
  if (!PathName::entryExists(trash)) TrashFolder::prepare();
  const bool usable = TrashFolder::folderIdentity(trash).has_value();
  {
    std::lock_guard lock(lock_);
    if (!usable && !trashUnusable_) {
      SystemLog::log("The Trash %s is not a folder: it is neither measured nor watched",
                     trash.c_str());
    }
    trashUnusable_ = !usable;
  }
  std::vector<std::string> trashes = VolumeTrashes::find(mountTable_, trash);
  trashes.insert(trashes.begin(), trash);
  auto found = walk(trashes, stop);
  walking.unlock();
  const uint64_t size = TrashFolder::sizeOfTrashes(trashes);
  RunLoop::main().post(
      [weak = weak_from_this(), found = std::move(found), size, trashes = std::move(trashes)] {
        if (auto self = weak.lock()) self->applyScan(found, size, trashes);
      });
}

void WatchTrash::applyScan(const std::vector<std::string>& found, uint64_t size,
                           const std::vector<std::string>& trashes) {
  watchTrashes(trashes);
  std::vector<std::string> added;
  std::optional<uint64_t> sizeToTell;
  std::shared_ptr<TrashWatchDelegate> delegate;
  {
    std::lock_guard lock(lock_);
    if (!watching_) return;
    delegate = delegate_;
    if (std::exchange(startPending_, false)) {
      for (const auto& path : found) {
        if (PathName::exists(path)) recordLocked(path);
      }
      prevUsedSize_ = size;
      sizeToTell = size;
    } else {
      // An application renamed in the Trash is the one that left under its old name.
      std::set<std::pair<uint64_t, uint64_t>> gone;
      for (const auto& known : std::vector<std::string>(watchApps_)) {
        if (isApplicationName(known) && !PathList::contains(found, known)) {
          gone.insert(identities_[known]);
          forgetLocked(known);
        }
      }
      for (const auto& path : found) {
        if (!isApplicationName(path) || PathList::contains(watchApps_, path)) continue;
        if (recordLocked(path) && !gone.count(identities_[path])) added.push_back(path);
      }
      if (size != prevUsedSize_) sizeToTell = size;
    }
  }
  if (!delegate) return;
  for (const auto& path : added) delegate->trashAddedApp(path);
  if (sizeToTell) delegate->trashUsedSizeChanged(*sizeToTell);
}

void WatchTrash::moveToTrash(const std::string& path) {
  DispatchQueue::global().async([weak = weak_from_this(), path] {
    auto self = weak.lock();
    if (!self) return;
    std::vector<std::string> apps;
    {
      std::lock_guard walking(self->walkMutex_);
      int* stop = nullptr;
      {
        std::lock_guard lock(self->lock_);
        stop = self->isStop_;
      }
      int unstoppable = 0;  // not watching: the move is walked all the same
      if (!stop) stop = &unstoppable;
      std::vector<char> root(path.begin(), path.end());
      root.push_back(0);
      movedApps = &apps;
      trv_all_app(root.data(), 1, folder_app_callback, stop);
      movedApps = nullptr;
    }
    RunLoop::main().post([weak, apps = std::move(apps)] {
      if (auto watch = weak.lock()) {
        for (const auto& app : apps) watch->notifyMovedApp(app);
      }
    });
  });
}

void WatchTrash::notifyMovedApp(const std::string& path) {
  if (!isApplicationName(path)) return;
  if (!RunLoop::isMainThread()) {
    RunLoop::main().post([weak = weak_from_this(), path] {
      if (auto self = weak.lock()) self->notifyMovedApp(path);
    });
    return;
  }
  if (queue_) queue_->addPath(path, watchqueue::kRename | watchqueue::kDelete);
  std::shared_ptr<TrashWatchDelegate> delegate;
  {
    std::lock_guard lock(lock_);
    if (!recordLocked(path)) return;
    delegate = delegate_;
  }
  if (delegate) delegate->trashAddedApp(path);
}

void WatchTrash::fillAppByPath(const std::string& path) {
  std::lock_guard lock(lock_);
  PathList::add(currApps_, path);
}

std::vector<std::string> WatchTrash::currApps() const {
  std::lock_guard lock(lock_);
  return currApps_;
}

std::vector<std::string> WatchTrash::watchApps() const {
  std::lock_guard lock(lock_);
  return watchApps_;
}

uint64_t WatchTrash::sizeOfFileWithPath(const std::string& path) {
  return TrashFolder::sizeOfFileWithPath(path);
}

uint64_t WatchTrash::folderSizeAtPath(const std::string& folder) {
  return TrashFolder::folderSizeAtPath(folder);
}

nlohmann::json WatchTrash::commonAttributesOfFile(const std::string& path) {
  return TrashFolder::commonAttributesOfFile(path);
}

void WatchTrash::watchQueueReceivedNotification(FSWatchQueue& queue, const std::string& name,
                                                const std::string& path) {
  (void)queue;
  if (name == WatchQueueDeleteNotification) {
    std::lock_guard lock(lock_);
    forgetLocked(path);
  } else if (name == WatchQueueWriteNotification) {
    {
      // A write in a Trash's parent may have replaced the Trash folder, perhaps by one with the
      // same inode number: its watch is renewed.
      std::lock_guard lock(lock_);
      for (const auto& [watched, identity] : trashWatches_) {
        if (PathName::parent(watched) == path) staleTrashes_.insert(watched);
      }
    }
    scanTask_->request();
  }
}

void WatchTrash::watchQueueDeleted(FSWatchQueue& queue, const std::string& path) {
  (void)queue;
  std::lock_guard lock(lock_);
  forgetLocked(path);
}

void WatchTrash::watchQueueRename(FSWatchQueue& queue, const std::string& newPath,
                                  const std::string& oldPath) {
  (void)queue;
  if (newPath == oldPath || !isApplicationName(oldPath)) return;
  std::lock_guard lock(lock_);
  forgetLocked(oldPath);
  recordLocked(newPath);
}

bool WatchTrash::recordLocked(const std::string& path) {
  if (!PathList::add(watchApps_, path)) return false;
  identities_[path] = identityOf(path);
  return true;
}

void WatchTrash::forgetLocked(const std::string& path) {
  PathList::remove(watchApps_, path);
  identities_.erase(path);
}

}  // namespace vexa

extern "C" {

void appcallback(const char* path, int kind) {
  if (!path || kind != 1) return;
  vexa::ScanTarget<vexa::WatchTrash>::get().fillAppByPath(path);
}

void folder_app_callback(const char* path, int kind) {
  if (!path || kind != 1) return;
  vexa::SystemLog::log("Path add is %s", vexa::PathName::lastComponent(path).c_str());
  if (vexa::movedApps) {
    vexa::movedApps->push_back(path);
  } else {
    vexa::WatchTrash::shared().notifyMovedApp(path);
  }
}

}  // extern "C"
