#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "vexa/Export.h"
#include "vexa/events/FSWatchQueueDelegate.h"
#include "vexa/events/WatchQueuePathEntries.h"
#include "vexa/monitors/WatchDownloadDelegate.h"

namespace vexa {

class BrowserDownloads;
class BrowserFolders;
class FSWatchQueue;

// Tells of completed browser downloads in the process that uses it, from single-item watches:
// each browser's download folder (the user's Downloads folder when no browser is found), each
// partial-download file in them, and the folders holding the browsers' settings files.
//
// A write in a download folder scans it (not its subfolders) and watches the partial files it
// holds. A partial file renamed within its folder completed as its new name; one deleted
// completed as its name less the partial extension, when that exists; one moved into the Trash
// or elsewhere is dropped without a word. Archives are judged again 2 s later, for a browser
// that unpacks them, and each finished path is told once however many events name it. A write
// in a settings folder reads the browsers' settings again only when a settings file changed
// (device, inode, size, modification time); a missing settings folder is stood for by its
// nearest existing ancestor inside the home folder, so that a browser's first run is noticed.
// Finished files are not left watched.
//
// Operations may be called from any thread; the watch call-backs and the delegate run on the
// main thread. Folder scans run on the thread that asks for them, one at a time, and end early
// once the caller's stop flag reads 1.
class VEXA_EXPORT WatchDownload : public FSWatchQueueDelegate,
                                  public std::enable_shared_from_this<WatchDownload> {
 public:
  // The watch masks: rename, write and delete for a download folder; rename and delete for a
  // partial file; write for a settings folder and Safari's folder.
  static constexpr uint32_t kDownloadFolderMask = 35;
  static constexpr uint32_t kPartialFileMask = 33;
  static constexpr uint32_t kPreferencesMask = 2;

  static WatchDownload& shared();
  // The browsers' settings are looked for in `folders` (this user's when null). Without a
  // kernel watch queue it hears of nothing.
  static std::shared_ptr<WatchDownload> create(
      const std::shared_ptr<const BrowserFolders>& folders = nullptr);
  ~WatchDownload() override;
  WatchDownload(const WatchDownload&) = delete;
  WatchDownload& operator=(const WatchDownload&) = delete;

  std::shared_ptr<WatchDownloadDelegate> delegate() const;
  void setDelegate(std::shared_ptr<WatchDownloadDelegate> delegate);

  // Keeps `stop` (scans end once it reads 1; may be null), reads the browsers' settings,
  // watches their download folders and scans them for partial files, and watches the settings
  // folders and Safari's folder. Watches already in place are replaced.
  void startWatch(int* stop);
  // Stops watching every path and stores 1 through the stop pointer; a scan under way ends at
  // its next entry, and has ended when this returns.
  void stopWatch();

  // Records a partial file a scan found (the scan's call-back).
  void fillDownloadPath(const std::string& path);
  // Judges whether the download that was `path` completed (`browserType` is a
  // BrowserDownloads::BrowserType code) and tells the delegate of what it finished as.
  void notifyDownloadCompleted(const std::string& path, uint32_t browserType);
  // Reads the browsers' settings again.
  void profileMonitor();
  // Safari's download history changed at `seconds` (its modification time).
  void setModifyDate(double seconds);
  static std::optional<std::string> getLatelyPathForSafariDl(const std::string& path);

  // What is watched, sorted: download folders, partial files, settings folders.
  std::vector<std::string> downloadFolders() const;
  std::vector<std::string> partialFiles() const;
  std::vector<std::string> preferencesFolders() const;
  std::map<std::string, std::string> browserDownloadPaths() const;
  // Safari archives waiting for the history to say what they were unpacked to.
  std::vector<std::string> safariDlsCache() const;

  void watchQueueReceivedNotification(FSWatchQueue& queue, const std::string& name,
                                      const std::string& path) override;
  void watchQueueDeleted(FSWatchQueue& queue, const std::string& path) override;
  void watchQueueRename(FSWatchQueue& queue, const std::string& newPath,
                        const std::string& oldPath) override;
  void watchQueueRemoveToTrash(FSWatchQueue& queue, const std::string& trashedPath,
                               const std::string& oldPath) override;

 private:
  // (device, inode, size, modification time in nanoseconds); zeros when missing.
  using Identity = std::array<int64_t, 4>;

  explicit WatchDownload(const BrowserFolders& folders);
  void deliver(const std::string& path);
  // Replaces the download-folder watches with `folders`, scanning each.
  void watchDownloadFolders(const std::vector<std::string>& folders);
  // Follows the table to `folders`: watches new ones (unscanned), drops those gone.
  void updateDownloadFolders(const std::vector<std::string>& folders);
  // Scans `folder` and watches the partial files found that are not watched yet.
  void scan(const std::string& folder);
  void watchPartialFiles(std::set<std::string> found);
  // Watches `folders` (the settings folders) and Safari's folder as it is now, dropping those
  // no longer wanted.
  void watchPreferences(const std::vector<std::string>& folders);
  // Reads which files the settings are and watches their folders, then reads the settings again
  // when one of the files changed; true when one did.
  bool refreshPreferences();
  // A write in the settings folder `folder`.
  void preferencesChanged(const std::string& folder);
  static std::map<std::string, Identity> identitiesOf(const std::vector<std::string>& files);
  // Stops watching `path` unless another role still wants it. Called with mutex_ held.
  void unwatchLocked(const std::string& path);
  // Drops `path` from the download folders and partial files; which lists held it.
  std::pair<bool, bool> forget(const std::string& path);
  // After the queue has moved its watch to a finished file's name, gives that watch back.
  void unwatchLater(const std::string& path);

  const std::shared_ptr<FSWatchQueue> queue_;
  const std::unique_ptr<const BrowserFolders> folders_;
  std::shared_ptr<BrowserDownloads> rules_;
  // Held by a scan, so that one runs at a time and stopWatch can wait for it. Before mutex_.
  std::mutex scanMutex_;
  mutable std::mutex mutex_;  // guards the fields below
  std::vector<std::string> prevDownloadFolder_;
  // The partial files watched: the queue's own entries, so their paths are not copied again.
  WatchQueuePathEntries watchDownload_;
  std::set<std::string> currDownload_;
  bool limitLogged_ = false;  // the watch limit was reached at the last scan
  std::vector<std::string> preferencesFolders_;
  std::string safariFolder_;  // watched while not empty
  std::vector<std::string> settingsFiles_;
  // Settings folders standing for a missing folder below them: a write there may have made it.
  std::set<std::string> standIns_;
  std::map<std::string, Identity> settings_;  // of settingsFiles_
  bool watching_ = false;
  int* isStop_ = nullptr;
  std::shared_ptr<WatchDownloadDelegate> delegate_;
};

}  // namespace vexa
