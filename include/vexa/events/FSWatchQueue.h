#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "vexa/Export.h"
#include "vexa/events/FSWatchQueueDelegate.h"
#include "vexa/events/WatchQueueNotifications.h"
#include "vexa/events/WatchQueuePathEntries.h"
#include "vexa/events/WatchQueuePathEntry.h"

namespace vexa {

class WatchQueueEngine;

// Watches single files and folders (not their trees) and tells of renames, deletions, writes,
// attribute, size and link-count changes and unmounts, following an item renamed within its
// folder and recognising one moved into the Trash.
//
// One watcher thread per queue waits for the kernel's events; each watched path's events are
// gathered there until the main thread handles them, so a burst reaches the delegate as one
// call-back per kind. The delegate (retained) is called, and the notifications posted on
// NotificationCenter::defaultCenter() with the queue as object and {"path": path}, on the main
// thread only. Notifications are posted when a delegate is set, or always with
// setAlwaysPostNotifications(true).
//
// Every operation is safe from any thread. Destroying the queue stops and joins its thread;
// call-backs not yet delivered are dropped.
class VEXA_EXPORT FSWatchQueue : public std::enable_shared_from_this<FSWatchQueue> {
 public:
  // Nothing when the kernel gives no event queue (logged).
  static std::shared_ptr<FSWatchQueue> create();
  // A queue over the given engine; the Trash folder is the user's, taken now.
  static std::shared_ptr<FSWatchQueue> create(std::unique_ptr<WatchQueueEngine> engine);
  ~FSWatchQueue();
  FSWatchQueue(const FSWatchQueue&) = delete;
  FSWatchQueue& operator=(const FSWatchQueue&) = delete;

  // Watches `path` for every kind of event (watchqueue::kAll) or for `flags`. A path already
  // watched stays as it is, whatever the flags; a path that cannot be watched is logged.
  void addPath(const std::string& path);
  void addPath(const std::string& path, uint32_t flags);
  // Watches `path` for `flags`, widening an existing subscription to the union. Nothing when
  // the path cannot be watched (missing, or the per-user watch limit reached).
  std::shared_ptr<WatchQueuePathEntry> addPathToQueue(const std::string& path, uint32_t flags);
  void removePath(const std::string& path);
  void removeAllPaths();
  size_t numberOfWatchedPaths() const;

  // The path of the watched item whose descriptor is `watchedFD`, found by its identity among
  // the entries of `folder` (its whole tree when `recursive`). Nothing when none matches.
  std::optional<std::string> filePathForFileDescr(int watchedFD, const std::string& folder,
                                                  bool recursive);

  std::shared_ptr<FSWatchQueueDelegate> delegate() const;
  void setDelegate(std::shared_ptr<FSWatchQueueDelegate> delegate);
  bool alwaysPostNotifications() const;
  void setAlwaysPostNotifications(bool always);
  const std::string& trashPath() const { return trashPath_; }

 private:
  FSWatchQueue(std::unique_ptr<WatchQueueEngine> engine, std::string trashPath);
  std::shared_ptr<WatchQueuePathEntry> addLocked(const std::string& path, uint32_t flags);
  void addLogged(const std::string& path, uint32_t flags, const char* entryName);
  void deliver(const std::string& path);
  bool followRename(const std::string& path, const std::shared_ptr<FSWatchQueueDelegate>& delegate);

  const std::unique_ptr<WatchQueueEngine> engine_;
  const std::string trashPath_;
  mutable std::mutex mutex_;  // guards the fields below
  // Ordered by path, looked up by a path: the entry holds the one copy of it.
  WatchQueuePathEntries watchedPathEntries_;
  std::shared_ptr<FSWatchQueueDelegate> delegate_;
  bool alwaysPostNotifications_ = false;
};

}  // namespace vexa
