#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "vexa/Export.h"

namespace vexa {

class FSWatchQueue;

// One path an FSWatchQueue watches. `watchedFD` is the kernel's watch for the item (an inotify
// watch descriptor, shared by every path of one file), not an open file: watching keeps no file
// open, so the item's deletion is seen at once and its file system can be unmounted. The item's
// identity (device, inode) is taken when the path is added; a renamed item is found again by it.
//
// The path and identity never change once the queue hands the entry out; the descriptor and the
// flags are read from any thread.
class VEXA_EXPORT WatchQueuePathEntry {
 public:
  WatchQueuePathEntry(std::string path, int watchedFD, uint32_t subscriptionFlags, uint64_t device,
                      uint64_t inode)
      : path_(std::move(path)),
        watchedFD_(watchedFD),
        subscriptionFlags_(subscriptionFlags),
        device_(device),
        inode_(inode) {}
  WatchQueuePathEntry(const WatchQueuePathEntry&) = delete;
  WatchQueuePathEntry& operator=(const WatchQueuePathEntry&) = delete;

  const std::string& path() const { return path_; }
  // -1 once the queue dropped the entry.
  int watchedFD() const { return watchedFD_.load(); }
  uint32_t subscriptionFlags() const { return subscriptionFlags_.load(); }
  uint64_t device() const { return device_; }
  uint64_t inode() const { return inode_; }

  void setWatchedFD(int fd) { watchedFD_.store(fd); }
  void setSubscriptionFlags(uint32_t flags) { subscriptionFlags_.store(flags); }

 private:
  // The queue makes the entry before the item is watched, so that the watch can refer to the
  // entry's own path, and fills in the identity the watch found.
  friend class FSWatchQueue;
  void setItem(int watchedFD, uint64_t device, uint64_t inode) {
    watchedFD_.store(watchedFD);
    device_ = device;
    inode_ = inode;
  }

  const std::string path_;
  std::atomic<int> watchedFD_;
  std::atomic<uint32_t> subscriptionFlags_;
  uint64_t device_;
  uint64_t inode_;
};

}  // namespace vexa
