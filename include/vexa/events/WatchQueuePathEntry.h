#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "vexa/Export.h"

namespace vexa {

// One path an FSWatchQueue watches. `watchedFD` is the kernel's watch for the item (an inotify
// watch descriptor, shared by every path of one file), not an open file: watching keeps no file
// open, so the item's deletion is seen at once and its file system can be unmounted. The item's
// identity (device, inode) is taken when the path is added; a renamed item is found again by it.
//
// The path and identity never change; the descriptor and the flags are read from any thread.
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

  // Orders entries by path, and finds one by a path: a set of entries holds no copy of them.
  struct ByPath {
    using is_transparent = void;
    static std::string_view pathOf(std::string_view path) { return path; }
    static std::string_view pathOf(const std::shared_ptr<WatchQueuePathEntry>& entry) {
      return entry->path();
    }
    template <typename A, typename B>
    bool operator()(const A& a, const B& b) const {
      return pathOf(a) < pathOf(b);
    }
  };

  const std::string& path() const { return path_; }
  // -1 once the queue dropped the entry.
  int watchedFD() const { return watchedFD_.load(); }
  uint32_t subscriptionFlags() const { return subscriptionFlags_.load(); }
  uint64_t device() const { return device_; }
  uint64_t inode() const { return inode_; }

  void setWatchedFD(int fd) { watchedFD_.store(fd); }
  void setSubscriptionFlags(uint32_t flags) { subscriptionFlags_.store(flags); }

 private:
  const std::string path_;
  std::atomic<int> watchedFD_;
  std::atomic<uint32_t> subscriptionFlags_;
  const uint64_t device_;
  const uint64_t inode_;
};

}  // namespace vexa
