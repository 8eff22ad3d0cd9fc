#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "vexa/Export.h"
#include "vexa/events/FSWatchQueueDelegate.h"
#include "vexa/monitors/ApplicationsWatchDelegate.h"

namespace vexa {

class FSWatchQueue;

// Notices applications that appear in the system applications folder (the first
// "applications" folder of the XDG data folders): the folder is watched for writes, and each
// write rescans its tree (plain sub-folders included, packages and bundles never entered) and
// tells the delegate of the applications not seen before. System applications (by display
// name, any letter case, with or without an extension) are never reported. The first scan, at
// start, reports nothing.
//
// Scans run on the thread that starts the watch or, for writes, the main thread, where the
// delegate is called. Operations are safe from any thread.
class VEXA_EXPORT WatchApplication : public FSWatchQueueDelegate,
                                     public std::enable_shared_from_this<WatchApplication> {
 public:
  static WatchApplication& shared();
  // Watches `appRootPath` instead of the system applications folder.
  static std::shared_ptr<WatchApplication> create(std::string appRootPath);
  ~WatchApplication() override;
  WatchApplication(const WatchApplication&) = delete;
  WatchApplication& operator=(const WatchApplication&) = delete;

  std::shared_ptr<ApplicationsWatchDelegate> delegate() const;
  void setDelegate(std::shared_ptr<ApplicationsWatchDelegate> delegate);
  const std::string& appRootPath() const { return appRootPath_; }

  // Keeps `stop` (a walk ends once it reads 1; may be null), watches the folder and takes its
  // inventory.
  void startWatch(int* stop);
  // Stops watching, forgets what was known and stores 1 through the stop pointer.
  void stopWatch();
  void fillAppByPath(const std::string& path);
  void fillFolderByPath(const std::string& path);
  std::vector<std::string> watchApps() const;
  std::vector<std::string> watchFolders() const;

  void watchQueueReceivedNotification(FSWatchQueue& queue, const std::string& name,
                                      const std::string& path) override;
  void watchQueueRename(FSWatchQueue& queue, const std::string& newPath,
                        const std::string& oldPath) override;
  // A path that is not an application's is handed to WatchTrash::shared().moveToTrash.
  void watchQueueRemoveToTrash(FSWatchQueue& queue, const std::string& trashedPath,
                               const std::string& oldPath) override;
  void watchQueueDeleted(FSWatchQueue& queue, const std::string& path) override;

 private:
  explicit WatchApplication(std::string appRootPath);
  // Appends to `list` each path of `found` it lacks; answers those. Called with lock_ held.
  static std::vector<std::string> appendNew(std::vector<std::string>& list,
                                            const std::vector<std::string>& found);
  // Empties currApps_ and currFolders_. Called with lock_ held.
  void clearCurrent();
  // Walks `path`, filling currApps_ and currFolders_.
  void walk(const std::string& path, int* stop);
  std::vector<std::string>& listFor(const std::string& path);

  const std::string appRootPath_;
  const std::shared_ptr<FSWatchQueue> queue_;
  const std::set<std::string> systemNames_;  // lower case
  mutable std::mutex lock_;                  // guards the fields below
  std::vector<std::string> watchApps_, watchFolders_, currApps_, currFolders_;
  // What currApps_ and currFolders_ hold, so that a walk of thousands stays linear.
  std::unordered_set<std::string> currAppsSeen_, currFoldersSeen_;
  int* isStop_ = nullptr;
  std::shared_ptr<ApplicationsWatchDelegate> delegate_;
};

}  // namespace vexa
