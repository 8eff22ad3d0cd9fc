#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"
#include "vexa/events/FSWatchQueueDelegate.h"
#include "vexa/monitors/TrashWatchDelegate.h"

namespace vexa {

class CoalescingTask;
class FSWatchQueue;
class MountWatch;

// Follows the user's Trash in the process that uses it: the applications lying there (".app"
// bundles, desktop entries, AppImages, also inside plain folders) and its allocated size.
//
// The Trash folder is watched for writes; each write rescans and measures it on the global
// queue, one scan at a time (writes meanwhile ask for one more), and the results are applied and
// told to the delegate on the main thread. The size told after start is compared with the size
// at start only: once the Trash differs from it, every later write tells the size again.
// The Trashes that exist on other mounted volumes are walked, measured and watched with the home
// one, from the mount table read at each scan; a mount or unmount asks for a scan. The Trash
// folder deleted or moved away is made again and watched again at the next scan; replaced by a
// link or a file, it is neither walked nor measured until it is a folder again.
// Operations may be called from any thread; the delegate is called on the main thread only.
class VEXA_EXPORT WatchTrash : public FSWatchQueueDelegate,
                               public std::enable_shared_from_this<WatchTrash> {
 public:
  static WatchTrash& shared();
  // Without a kernel watch queue it measures and walks on request but hears of no change.
  // `mountTable` is the mount table to read and watch.
  static std::shared_ptr<WatchTrash> create(std::string mountTable = kMountTable);
  static constexpr const char* kMountTable = "/proc/self/mountinfo";
  ~WatchTrash() override;
  WatchTrash(const WatchTrash&) = delete;
  WatchTrash& operator=(const WatchTrash&) = delete;

  std::shared_ptr<TrashWatchDelegate> delegate() const;
  void setDelegate(std::shared_ptr<TrashWatchDelegate> delegate);

  // Keeps `stop` (walks end once it reads 1; may be null), makes the Trash's folders when
  // missing, watches the Trash, and takes its applications and size: the size goes to
  // trashUsedSizeChanged, the applications to no call-back.
  void startWatch(int* stop);
  // Stops watching every path and stores 1 through the stop pointer.
  void stopWatch();
  // Walks `path`, which has just been moved into the Trash, and hands each application found in
  // it to notifyMovedApp (on the main thread).
  void moveToTrash(const std::string& path);
  // An application in the Trash: watched for renames and deletion, recorded, and told to
  // trashAddedApp unless it was recorded already.
  void notifyMovedApp(const std::string& path);
  void fillAppByPath(const std::string& path);
  std::vector<std::string> currApps() const;
  // The applications known to be in the Trash.
  std::vector<std::string> watchApps() const;

  static uint64_t sizeOfFileWithPath(const std::string& path);
  static uint64_t folderSizeAtPath(const std::string& folder);
  static nlohmann::json commonAttributesOfFile(const std::string& path);

  void watchQueueReceivedNotification(FSWatchQueue& queue, const std::string& name,
                                      const std::string& path) override;
  void watchQueueDeleted(FSWatchQueue& queue, const std::string& path) override;
  void watchQueueRename(FSWatchQueue& queue, const std::string& newPath,
                        const std::string& oldPath) override;

 private:
  explicit WatchTrash(std::string mountTable);
  // Walks and measures the Trash (on the global queue) and applies the result on the main
  // thread.
  void scan();
  void applyScan(const std::vector<std::string>& found, uint64_t size,
                 const std::vector<std::string>& volumes);
  std::vector<std::string> walk(const std::vector<std::string>& trashes, int* stop);
  // Watches each Trash folder and its parent for writes, again when the folder at a path is a
  // new one; drops the watches of paths no longer listed or no longer folders. Main thread.
  void watchTrashes(const std::vector<std::string>& trashes);
  // Records an application; false when it was known. Called with lock_ held.
  bool recordLocked(const std::string& path);
  void forgetLocked(const std::string& path);

  const std::shared_ptr<FSWatchQueue> queue_;
  std::unique_ptr<CoalescingTask> scanTask_;
  const std::string mountTable_;
  // Held by a walk that reads the caller's stop flag, so that stopWatch can wait for it to end.
  // Taken before lock_.
  std::mutex walkMutex_;
  mutable std::mutex lock_;  // guards the fields below
  std::string trashPath_;
  std::unique_ptr<MountWatch> mountWatch_;  // while watching
  // Each Trash folder (and Trash folder parent) watched, with the folder's (device, inode).
  std::map<std::string, std::pair<uint64_t, uint64_t>> trashWatches_;
  // Trash folders whose parent changed since they were watched: watched anew.
  std::set<std::string> staleTrashes_;
  bool trashUnusable_ = false;  // the home Trash path names no folder (told once)
  std::vector<std::string> watchApps_;
  // Of each known application as it was recorded, so that one renamed in the Trash is known.
  std::map<std::string, std::pair<uint64_t, uint64_t>> identities_;
  std::vector<std::string> currApps_;
  uint64_t prevUsedSize_ = 0;
  bool startPending_ = false;
  bool watching_ = false;
  int* isStop_ = nullptr;
  std::shared_ptr<TrashWatchDelegate> delegate_;
};

}  // namespace vexa
