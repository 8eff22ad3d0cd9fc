#include "vexa/events/FSWatchQueue.h"

#include <utility>

#include "events/WatchQueueEngine.h"
#include "util/PathName.h"
#include "util/RunGuarded.h"
#include "vexa/util/MonitorString.h"
#include "vexa/util/NotificationCenter.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

const char* const WatchQueueRenameNotification = "WatchQueueFileRenamedNotification";
const char* const WatchQueueWriteNotification = "WatchQueueFileWrittenToNotification";
const char* const WatchQueueDeleteNotification = "WatchQueueFileDeletedNotification";
const char* const WatchQueueAttributeChangeNotification =
    "WatchQueueFileAttributesChangedNotification";
const char* const WatchQueueSizeIncreaseNotification = "WatchQueueFileSizeIncreasedNotification";
const char* const WatchQueueLinkCountChangeNotification = "WatchQueueLinkCountChangedNotification";
const char* const WatchQueueAccessRevocationNotification = "WatchQueueAccessWasRevokedNotification";

namespace {

// One event's names are told in this order.
const std::pair<uint32_t, const char* const*> kNames[] = {
    {watchqueue::kRename, &WatchQueueRenameNotification},
    {watchqueue::kWrite, &WatchQueueWriteNotification},
    {watchqueue::kDelete, &WatchQueueDeleteNotification},
    {watchqueue::kAttributeChange, &WatchQueueAttributeChangeNotification},
    {watchqueue::kSizeIncrease, &WatchQueueSizeIncreaseNotification},
    {watchqueue::kLinkCountChange, &WatchQueueLinkCountChangeNotification},
    {watchqueue::kAccessRevocation, &WatchQueueAccessRevocationNotification},
};

}  // namespace

std::shared_ptr<FSWatchQueue> FSWatchQueue::create() {
  auto engine = makePlatformWatchQueueEngine();
  if (!engine) return nullptr;
  return create(std::move(engine));
}

std::shared_ptr<FSWatchQueue> FSWatchQueue::create(std::unique_ptr<WatchQueueEngine> engine) {
  std::shared_ptr<FSWatchQueue> queue(
      new FSWatchQueue(std::move(engine), MonitorString::userTrashPath().value_or("")));
  // Only posts: the queue may go while the task waits, and must never be released on the
  // watcher thread, which its destruction joins.
  queue->engine_->setReady([weak = std::weak_ptr<FSWatchQueue>(queue)](const std::string& path) {
    RunLoop::main().post([weak, path] {
      if (auto self = weak.lock()) runGuarded("watch queue", [&] { self->deliver(path); });
    });
  });
  return queue;
}

FSWatchQueue::FSWatchQueue(std::unique_ptr<WatchQueueEngine> engine, std::string trashPath)
    : engine_(std::move(engine)), trashPath_(std::move(trashPath)) {}

FSWatchQueue::~FSWatchQueue() {
  // The engine's watches refer to the entries' paths, and its thread runs until the engine goes:
  // the watches go first.
  engine_->removeAll();
}

void FSWatchQueue::addPath(const std::string& path) {
  addLogged(path, watchqueue::kAll, "VDKQueuePathEntry");
}

void FSWatchQueue::addPath(const std::string& path, uint32_t flags) {
  addLogged(path, flags, "WatchQueuePathEntry");
}

void FSWatchQueue::addLogged(const std::string& path, uint32_t flags, const char* entryName) {
  if (path.empty()) return;
  std::lock_guard lock(mutex_);
  if (watchedPathEntries_.contains(path)) return;
  if (!addLocked(path, flags)) {
    SystemLog::log(
        "WatchQueue tried to add the path %s to watchedPathEntries, but the %s was nil. \nIt's "
        "possible that the host process has hit its max open file descriptors limit.",
        path.c_str(), entryName);
  }
}

std::shared_ptr<WatchQueuePathEntry> FSWatchQueue::addPathToQueue(const std::string& path,
                                                                  uint32_t flags) {
  std::lock_guard lock(mutex_);
  return addLocked(path, flags);
}

std::shared_ptr<WatchQueuePathEntry> FSWatchQueue::addLocked(const std::string& path,
                                                             uint32_t flags) {
  if (auto found = watchedPathEntries_.find(path)) {
    if ((found->subscriptionFlags() & flags) == flags) return found;
    if (engine_->add(found->path(), flags).error != 0) return nullptr;
    found->setSubscriptionFlags(found->subscriptionFlags() | flags);
    return found;
  }
  // The engine keeps a reference to the entry's path: the entry outlives the watch (removal
  // gives the watch back before the entry goes).
  auto entry = std::make_shared<WatchQueuePathEntry>(path, -1, flags, 0, 0);
  const auto added = engine_->add(entry->path(), flags);
  if (added.error != 0) return nullptr;
  entry->setItem(added.wd, added.device, added.inode);
  return watchedPathEntries_.insert(std::move(entry));
}

void FSWatchQueue::removePath(const std::string& path) {
  std::lock_guard lock(mutex_);
  // The entry stays alive until its watch, which refers to its path, is given back.
  const auto gone = watchedPathEntries_.erase(path);
  if (!gone) return;
  gone->setWatchedFD(-1);
  engine_->remove(gone->path());
}

void FSWatchQueue::removeAllPaths() {
  std::lock_guard lock(mutex_);
  for (const auto& entry : watchedPathEntries_) entry->setWatchedFD(-1);
  engine_->removeAll();
  watchedPathEntries_.clear();
}

size_t FSWatchQueue::numberOfWatchedPaths() const {
  std::lock_guard lock(mutex_);
  return watchedPathEntries_.size();
}

std::optional<std::string> FSWatchQueue::filePathForFileDescr(int watchedFD,
                                                              const std::string& folder,
                                                              bool recursive) {
  std::shared_ptr<WatchQueuePathEntry> entry;
  {
    std::lock_guard lock(mutex_);
    for (const auto& candidate : watchedPathEntries_) {
      if (watchedFD >= 0 && candidate->watchedFD() == watchedFD) entry = candidate;
    }
  }
  if (!entry) return std::nullopt;
  return engine_->locate(entry->device(), entry->inode(), folder, recursive);
}

std::shared_ptr<FSWatchQueueDelegate> FSWatchQueue::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_;
}

void FSWatchQueue::setDelegate(std::shared_ptr<FSWatchQueueDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

bool FSWatchQueue::alwaysPostNotifications() const {
  std::lock_guard lock(mutex_);
  return alwaysPostNotifications_;
}

void FSWatchQueue::setAlwaysPostNotifications(bool always) {
  std::lock_guard lock(mutex_);
  alwaysPostNotifications_ = always;
}

void FSWatchQueue::deliver(const std::string& path) {
  const uint32_t bits = engine_->take(path);
  if (bits == 0) return;
  std::shared_ptr<FSWatchQueueDelegate> delegate;
  bool alwaysPost;
  {
    std::lock_guard lock(mutex_);
    delegate = delegate_;
    alwaysPost = alwaysPostNotifications_;
  }
  for (const auto& [bit, namePointer] : kNames) {
    if (!(bits & bit)) continue;
    const std::string name = *namePointer;
    if (bit == watchqueue::kDelete) {
      if (delegate) delegate->watchQueueDeleted(*this, path);
      removePath(path);
    } else if (bit != watchqueue::kRename || !followRename(path, delegate)) {
      if (delegate) delegate->watchQueueReceivedNotification(*this, name, path);
    }
    if (delegate || alwaysPost) {
      NotificationCenter::defaultCenter().post(name, this, {{"path", path}});
    }
  }
}

bool FSWatchQueue::followRename(const std::string& path,
                                const std::shared_ptr<FSWatchQueueDelegate>& delegate) {
  std::shared_ptr<WatchQueuePathEntry> entry;
  {
    std::lock_guard lock(mutex_);
    entry = watchedPathEntries_.find(path);
    if (!entry) return false;
  }
  const uint64_t device = entry->device();
  const uint64_t inode = entry->inode();
  if (auto trash = engine_->trashFolderFor(device, path, trashPath_)) {
    if (auto trashed = engine_->locate(device, inode, *trash, false)) {
      if (delegate) delegate->watchQueueRemoveToTrash(*this, *trashed, path);
      return true;
    }
  }
  const auto renamed = engine_->locate(device, inode, PathName::parent(path), false);
  if (!renamed || *renamed == path) return false;
  if (delegate) delegate->watchQueueRename(*this, *renamed, path);
  // The new path first: both share the item's watch meanwhile, so no event falls between.
  addPath(*renamed, entry->subscriptionFlags());
  removePath(path);
  return true;
}

}  // namespace vexa
