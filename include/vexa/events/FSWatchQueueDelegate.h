#pragma once

#include <string>

#include "vexa/Export.h"

namespace vexa {

class FSWatchQueue;

// Receives an FSWatchQueue's events on the main thread. Every operation is optional: the
// defaults do nothing.
class VEXA_EXPORT FSWatchQueueDelegate {
 public:
  virtual ~FSWatchQueueDelegate() = default;

  // An event not told by the three below: `name` is one of the WatchQueue…Notification names.
  virtual void watchQueueReceivedNotification(FSWatchQueue& queue, const std::string& name,
                                              const std::string& path) {
    (void)queue, (void)name, (void)path;
  }
  // The watched item was deleted; the queue no longer watches the path.
  virtual void watchQueueDeleted(FSWatchQueue& queue, const std::string& path) {
    (void)queue, (void)path;
  }
  // The item was renamed within its folder; the watch follows it to `newPath`.
  virtual void watchQueueRename(FSWatchQueue& queue, const std::string& newPath,
                                const std::string& oldPath) {
    (void)queue, (void)newPath, (void)oldPath;
  }
  // The item was moved into the Trash of its file system; the watch stays on `oldPath`.
  virtual void watchQueueRemoveToTrash(FSWatchQueue& queue, const std::string& trashedPath,
                                       const std::string& oldPath) {
    (void)queue, (void)trashedPath, (void)oldPath;
  }
};

}  // namespace vexa
