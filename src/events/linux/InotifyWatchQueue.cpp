#include "events/linux/InotifyWatchQueue.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

#include "util/PathName.h"
#include "vexa/events/WatchQueueNotifications.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

using namespace watchqueue;

// A folder's entry list changed; with IN_ISDIR, its link count too.
constexpr uint32_t kEntryEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

}  // namespace

InotifyWatchQueue::InotifyWatchQueue(std::unique_ptr<WatchQueueKernel> kernel, bool ownThread)
    : kernel_(std::move(kernel)), ownThread_(ownThread) {}

InotifyWatchQueue::~InotifyWatchQueue() {
  stopping_.store(true);
  kernel_->wake();
  if (thread_.joinable()) thread_.join();
}

uint32_t InotifyWatchQueue::kernelMask(uint32_t flags, bool folder) {
  uint32_t mask = 0;
  if (flags & kRename) mask |= IN_MOVE_SELF;
  // Unlinking a file that is still open, or renaming another over it, says IN_ATTRIB at once
  // and IN_DELETE_SELF only when the last descriptor closes.
  if (flags & kDelete) mask |= IN_DELETE_SELF | IN_ATTRIB;
  if (flags & kWrite) mask |= folder ? kEntryEvents : IN_MODIFY;
  if ((flags & kSizeIncrease) && !folder) mask |= IN_MODIFY;
  if (flags & kLinkCountChange) mask |= IN_ATTRIB | (folder ? kEntryEvents : 0);
  if (flags & kAttributeChange) mask |= IN_ATTRIB;
  // Whether IN_ATTRIB means deletion depends on whether the item was renamed meanwhile.
  if (mask & IN_ATTRIB) mask |= IN_MOVE_SELF;
  return mask;  // IN_UNMOUNT, IN_IGNORED and IN_Q_OVERFLOW come unasked
}

void InotifyWatchQueue::setReady(Ready ready) {
  std::lock_guard lock(mutex_);
  ready_ = std::move(ready);
}

WatchQueueEngine::Added InotifyWatchQueue::add(const std::string& path, uint32_t flags) {
  std::lock_guard lock(mutex_);
  auto existing = entries_.find(path);
  if (existing != entries_.end()) {
    Entry& entry = existing->second;
    const Added same{entry.wd, entry.device, entry.inode, 0};
    if ((entry.flags & flags) == flags) return same;
    entry.flags |= flags;
    // The path still names the item unless it moved; a watch on whatever took its name would
    // be another item's.
    if (entry.wd >= 0 && !entry.moved) {
      const int wd = kernel_->addWatch(path, kernelMask(entry.flags, entry.folder) | IN_MASK_ADD);
      if (wd >= 0 && wd != entry.wd && watches_.count(wd) == 0) kernel_->removeWatch(wd);
    }
    return same;
  }
  const auto item = kernel_->status(path, true);
  if (!item) return Added{-1, 0, 0, ENOENT};
  // IN_MASK_ADD: another path of the same item may hold the watch with bits of its own.
  const int wd = kernel_->addWatch(path, kernelMask(flags, item->folder) | IN_MASK_ADD);
  if (wd < 0) {
    if (wd == -ENOSPC) {
      SystemLog::log(
          "cannot watch %s: the per-user inotify watch limit is reached (raise "
          "fs.inotify.max_user_watches)",
          path.c_str());
    }
    return Added{-1, 0, 0, -wd};
  }
  Node& added = *entries_.try_emplace(&path).first;
  Entry& entry = added.second;
  entry.device = item->device;
  entry.inode = item->inode;
  entry.size = item->size;
  entry.links = item->links;
  entry.wd = wd;
  entry.flags = flags;
  entry.folder = item->folder;
  auto [watch, fresh] = watches_.try_emplace(wd, &added);
  if (!fresh) {
    Node* last = watch->second;
    while (last->second.nextOfWatch) last = last->second.nextOfWatch;
    last->second.nextOfWatch = &added;
  }
  startThreadLocked();
  return Added{wd, item->device, item->inode, 0};
}

void InotifyWatchQueue::startThreadLocked() {
  if (!ownThread_ || thread_.joinable()) return;
  thread_ = std::thread([this] {
    // After a turn that read records the thread pauses briefly before the next, so a storm of
    // changes is read in batches: the first change after a quiet spell is still seen at once,
    // and the paths' bits pile up meanwhile (one call-back per path and batch, not per read).
    while (step(1000)) {
      if (busy_) std::this_thread::sleep_for(kBatchPause);
    }
  });
}

void InotifyWatchQueue::remove(const std::string& path) {
  std::lock_guard lock(mutex_);
  auto entry = entries_.find(path);
  if (entry != entries_.end()) removeLocked(entry);
}

void InotifyWatchQueue::removeAll() {
  std::lock_guard lock(mutex_);
  while (!entries_.empty()) removeLocked(entries_.begin());
}

void InotifyWatchQueue::removeLocked(Entries::iterator entry) {
  const int wd = entry->second.wd;
  auto watch = wd >= 0 ? watches_.find(wd) : watches_.end();
  if (watch != watches_.end()) {
    Node* const gone = &*entry;
    if (watch->second == gone) {
      watch->second = gone->second.nextOfWatch;
    } else {
      Node* before = watch->second;
      while (before->second.nextOfWatch != gone) before = before->second.nextOfWatch;
      before->second.nextOfWatch = gone->second.nextOfWatch;
    }
    if (!watch->second) {
      // The last path of the item: the watch goes; its records still queued are stale.
      if (kernel_->removeWatch(wd)) released_.released(wd);
      watches_.erase(watch);
    }
    // A shared watch keeps the union of its paths' masks: narrowing it would need a path that
    // still names the item, and the records it then delivers are sorted out per path anyway.
  }
  entries_.erase(entry);
}

size_t InotifyWatchQueue::watchCount() const {
  std::lock_guard lock(mutex_);
  return watches_.size();
}

uint32_t InotifyWatchQueue::take(const std::string& path) {
  std::lock_guard lock(mutex_);
  auto entry = entries_.find(path);
  if (entry == entries_.end()) return 0;
  entry->second.readyCalled = false;
  return std::exchange(entry->second.pending, 0);
}

bool InotifyWatchQueue::step(int timeoutMs) {
  if (stopping_.load()) return false;
  try {
    const auto records = kernel_->wait(timeoutMs);
    busy_ = !records.empty();
    translate(records);
  } catch (const std::exception& e) {
    SystemLog::log("Error in WatchQueue watcherThread: %s", e.what());
  }
  return !stopping_.load();
}

void InotifyWatchQueue::translate(const std::vector<InotifyRecord>& records) {
  std::vector<std::string> ready;
  Ready callback;
  {
    std::lock_guard lock(mutex_);
    for (const InotifyRecord& record : records) translateLocked(record, ready);
    callback = ready_;
  }
  if (!callback) return;
  for (const auto& path : ready) callback(path);
}

void InotifyWatchQueue::translateLocked(const InotifyRecord& record,
                                        std::vector<std::string>& ready) {
  if (record.mask & IN_Q_OVERFLOW) {
    // Whatever was lost, every path is looked at again: a folder may have new entries, a file
    // may be gone or changed.
    for (auto& [path, entry] : entries_) {
      raise(*path, entry, entry.folder ? uint32_t{kWrite} : recheck(*path, entry), ready);
    }
    return;
  }
  if (record.mask & IN_IGNORED) {
    if (released_.confirmed(record.wd)) return;  // the confirmation of a watch given back
    // The kernel dropped the watch (its item was deleted or unmounted): the paths stay until
    // their owner removes them, with no watch left to give back.
    auto watch = watches_.find(record.wd);
    if (watch == watches_.end()) return;
    for (Node* path = watch->second; path;) {
      path->second.wd = -1;
      path = std::exchange(path->second.nextOfWatch, nullptr);
    }
    watches_.erase(watch);
    return;
  }
  if (released_.awaited(record.wd)) return;  // a watch given back, its IN_IGNORED not read yet
  auto watch = watches_.find(record.wd);
  if (watch == watches_.end()) return;
  for (Node* path = watch->second; path; path = path->second.nextOfWatch) {
    raise(*path->first, path->second, bitsFor(record, *path->first, path->second), ready);
  }
}

void InotifyWatchQueue::raise(const std::string& path, Entry& entry, uint32_t bits,
                              std::vector<std::string>& ready) {
  bits &= entry.flags;
  if (bits == 0) return;
  entry.pending |= bits;
  if (!entry.readyCalled) {
    entry.readyCalled = true;
    ready.push_back(path);
  }
}

bool InotifyWatchQueue::sameItem(const std::optional<WatchedItemStatus>& now, const Entry& entry) {
  return now && now->device == entry.device && now->inode == entry.inode;
}

uint32_t InotifyWatchQueue::bitsFor(const InotifyRecord& record, const std::string& path,
                                    Entry& entry) {
  const uint32_t mask = record.mask;
  if (!record.name.empty()) {
    // About an entry of a watched folder: its list changed, or, for a sub-folder made, removed
    // or moved, its link count. A child's own writes and attributes are not the folder's.
    if (!(mask & kEntryEvents)) return 0;
    return kWrite | ((mask & IN_ISDIR) ? kLinkCountChange : 0);
  }
  uint32_t bits = 0;
  if (mask & IN_MOVE_SELF) {
    entry.moved = true;
    bits |= kRename;
  }
  if (mask & IN_DELETE_SELF) bits |= kDelete;
  if (mask & IN_UNMOUNT) bits |= kAccessRevocation;
  if (mask & IN_MODIFY) {
    bits |= kWrite;
    if ((entry.flags & kSizeIncrease) && !entry.moved) {
      const auto now = kernel_->status(path, true);
      if (sameItem(now, entry)) {
        if (now->size > entry.size) bits |= kSizeIncrease;
        entry.size = now->size;
      }
    }
  }
  if (mask & IN_ATTRIB) {
    const auto now = kernel_->status(path, true);
    if (sameItem(now, entry)) {
      entry.moved = false;  // back under its watched name
      bits |= now->links != entry.links ? kLinkCountChange : kAttributeChange;
      entry.links = now->links;
    } else if (entry.moved || (entry.pending & kRename)) {
      bits |= kAttributeChange;
    } else {
      bits |= kDelete;  // unlinked, or another item renamed over it
    }
  }
  return bits;
}

uint32_t InotifyWatchQueue::recheck(const std::string& path, Entry& entry) {
  const auto now = kernel_->status(path, true);
  if (!sameItem(now, entry)) return entry.moved ? 0 : kDelete;
  uint32_t bits = 0;
  if (now->size != entry.size) bits |= kWrite | (now->size > entry.size ? kSizeIncrease : 0);
  if (now->links != entry.links) bits |= kLinkCountChange;
  entry.size = now->size;
  entry.links = now->links;
  return bits;
}

std::optional<std::string> InotifyWatchQueue::trashFolderFor(uint64_t device,
                                                             const std::string& path,
                                                             const std::string& userTrash) {
  if (!userTrash.empty()) {
    const auto trash = kernel_->status(userTrash, true);
    if (trash && trash->device == device) return userTrash;
  }
  // The top of the item's file system: the last folder up from it on the same device.
  std::string top = PathName::parent(path);
  const auto start = kernel_->status(top, true);
  if (!start || start->device != device) return std::nullopt;
  while (top != "/") {
    const std::string up = PathName::parent(top);
    const auto above = kernel_->status(up, true);
    if (!above || above->device != device) break;
    top = up;
  }
  const std::string base = top == "/" ? "" : top;
  const std::string uid = std::to_string(kernel_->userId());
  const auto shared = kernel_->status(base + "/.Trash", false);
  if (shared && shared->folder && shared->sticky && !shared->link) {
    return base + "/.Trash/" + uid + "/files";
  }
  return base + "/.Trash-" + uid + "/files";
}

std::optional<std::string> InotifyWatchQueue::locate(uint64_t device, uint64_t inode,
                                                     const std::string& folder, bool recursive) {
  std::vector<std::string> folders{PathName::withoutTrailingSlashes(folder)};
  for (size_t next = 0; next < folders.size(); ++next) {
    const std::string dir = folders[next];
    for (const auto& name : kernel_->list(dir)) {
      const std::string child = (dir == "/" ? "" : dir) + "/" + name;
      const auto item = kernel_->status(child, false);
      if (!item) continue;
      if (item->device == device && item->inode == inode) return child;
      if (recursive && item->folder && !item->link) folders.push_back(child);
    }
  }
  return std::nullopt;
}

}  // namespace vexa
