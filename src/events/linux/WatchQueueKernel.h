#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "events/linux/InotifyRecord.h"

namespace vexa {

// What the kernel tells of one item; `folder`, `link` and `sticky` describe the entry as
// looked up (links followed or not).
struct WatchedItemStatus {
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t size = 0;
  uint64_t links = 0;
  bool folder = false;
  bool link = false;
  bool sticky = false;
};

// The system calls of an inotify watch queue, as a port: the real one talks to one inotify
// instance, a test's fake plays the kernel.
class WatchQueueKernel {
 public:
  virtual ~WatchQueueKernel() = default;
  // inotify_add_watch: the watch descriptor, or -errno.
  virtual int addWatch(const std::string& path, uint32_t mask) = 0;
  // inotify_rm_watch: true when an IN_IGNORED will confirm it.
  virtual bool removeWatch(int wd) = 0;
  // Waits up to `timeoutMs` for records (or a wake()) and answers every record queued; empty
  // after a time-out. Called on one thread only.
  virtual std::vector<InotifyRecord> wait(int timeoutMs) = 0;
  // Makes a wait in progress return now. Safe from any thread.
  virtual void wake() = 0;
  virtual std::optional<WatchedItemStatus> status(const std::string& path, bool followLink) = 0;
  // The entries' names ("." and ".." left out); empty when the folder cannot be listed.
  virtual std::vector<std::string> list(const std::string& folder) = 0;
  virtual uint32_t userId() = 0;
};

}  // namespace vexa
