#pragma once

#include <sys/inotify.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "events/linux/WatchQueueKernel.h"
#include "util/PathName.h"
#include "vexa/events/FSWatchQueueDelegate.h"

namespace vexa::test {

// Plays the kernel for a watch queue: items by path, one watch per inode (as inotify gives),
// records queued by the test. Every call is logged as text.
class FakeWatchQueueKernel : public WatchQueueKernel {
 public:
  static constexpr uint64_t kDevice = 1;

  // An item at `path` (its folders are not made).
  void put(const std::string& path, uint64_t inode, bool folder = false, uint64_t size = 0,
           uint64_t links = 1, uint64_t device = kDevice) {
    std::lock_guard lock(mutex_);
    items[path] = WatchedItemStatus{device, inode, size, links, folder, false, false};
  }
  void erase(const std::string& path) {
    std::lock_guard lock(mutex_);
    items.erase(path);
  }
  void move(const std::string& from, const std::string& to) {
    std::lock_guard lock(mutex_);
    items[to] = items[from];
    items.erase(from);
  }
  // The wd the kernel gave the item at `path`.
  int wdOf(const std::string& path) {
    std::lock_guard lock(mutex_);
    return wdOfInode_[items.at(path).inode];
  }

  int addWatch(const std::string& path, uint32_t mask) override {
    std::lock_guard lock(mutex_);
    log.push_back("add " + path);
    if (failWith != 0) return -failWith;
    auto item = items.find(path);
    if (item == items.end()) return -ENOENT;
    int& wd = wdOfInode_[item->second.inode];
    if (wd == 0) wd = ++lastWd_;
    const uint32_t bits = mask & ~uint32_t{IN_MASK_ADD};
    masks[wd] = (mask & IN_MASK_ADD) ? masks[wd] | bits : bits;
    return wd;
  }
  bool removeWatch(int wd) override {
    std::lock_guard lock(mutex_);
    log.push_back("remove " + std::to_string(wd));
    masks.erase(wd);
    for (auto& [inode, held] : wdOfInode_) {
      if (held == wd) held = 0;
    }
    return true;
  }
  std::vector<InotifyRecord> wait(int) override { return {}; }
  void wake() override {}
  std::optional<WatchedItemStatus> status(const std::string& path, bool) override {
    std::lock_guard lock(mutex_);
    auto item = items.find(path);
    if (item == items.end()) return std::nullopt;
    return item->second;
  }
  std::vector<std::string> list(const std::string& folder) override {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& [path, item] : items) {
      if (path != folder && PathName::parent(path) == folder) {
        names.push_back(PathName::lastComponent(path));
      }
    }
    return names;
  }
  uint32_t userId() override { return 1000; }

  std::map<std::string, WatchedItemStatus> items;
  std::map<int, uint32_t> masks;
  std::vector<std::string> log;
  int failWith = 0;  // errno every addWatch answers, when set

 private:
  std::mutex mutex_;
  std::map<uint64_t, int> wdOfInode_;
  int lastWd_ = 0;
};

// Records an FSWatchQueue delegate's calls as text, on the main thread.
class RecordingQueueDelegate : public FSWatchQueueDelegate {
 public:
  void watchQueueReceivedNotification(FSWatchQueue&, const std::string& name,
                                      const std::string& path) override {
    calls.push_back(name + " " + path);
  }
  void watchQueueDeleted(FSWatchQueue&, const std::string& path) override {
    calls.push_back("deleted " + path);
  }
  void watchQueueRename(FSWatchQueue&, const std::string& newPath,
                        const std::string& oldPath) override {
    calls.push_back("rename " + oldPath + " -> " + newPath);
  }
  void watchQueueRemoveToTrash(FSWatchQueue&, const std::string& trashedPath,
                               const std::string& oldPath) override {
    calls.push_back("trash " + oldPath + " -> " + trashedPath);
  }
  std::vector<std::string> calls;
};

}  // namespace vexa::test
