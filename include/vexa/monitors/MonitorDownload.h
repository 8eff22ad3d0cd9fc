#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "vexa/Export.h"
#include "vexa/events/FileSystemMonitorDelegate.h"

namespace vexa {

class BrowserDownloads;
class BrowserFolders;
class CachedPathList;
class DispatchQueue;
class FindInventory;
class MonitorDispatch;
class XSocketServer;

// Keeps the list of browser downloads in progress (partial files: "*.download", "*.crdownload",
// "*.part", "*.opdownload"), persists it in "downloadcache.dat", and tells the host when one
// starts ("DownloadAdd" {"Path"}), goes ("DownloadRemove") and completes ("DownloadComplete"
// {"Path": the finished file}).
//
// Browsers finish a download by renaming the partial file to its final name (Chrome) or over a
// placeholder of that name (Firefox): a partial file that moves away or is deleted outside the
// Trash has its final name checked, and the target of a rename is checked as the finished file.
// Each finished path is announced once however many events tell of it. Archives are checked
// again after 2 s, for a browser that unpacks them. The browsers' download folders follow their
// settings files, read again whenever an event touches one; folders outside the home folder are
// watched too.
//
// File events only schedule work on the global queue; every operation is safe from any thread.
class VEXA_EXPORT MonitorDownload : public FileSystemMonitorDelegate,
                                    public std::enable_shared_from_this<MonitorDownload> {
 public:
  static constexpr const char* kCacheFileName = "downloadcache.dat";

  // Uses the shared dispatcher and the shared socket server.
  static MonitorDownload& shared();
  // The browsers' settings are looked for in `folders` (this user's when null); `inventory`
  // runs find (the system's find and helper when null).
  static std::shared_ptr<MonitorDownload> create(
      MonitorDispatch& dispatch, XSocketServer& server,
      const std::shared_ptr<const BrowserFolders>& folders = nullptr,
      std::shared_ptr<const FindInventory> inventory = nullptr);
  ~MonitorDownload() override;
  MonitorDownload(const MonitorDownload&) = delete;
  MonitorDownload& operator=(const MonitorDownload&) = delete;

  std::string cacheFolderPath() const;
  // A non-empty folder also names the cache file, "downloadcache.dat" inside it.
  void setCacheFolderPath(const std::string& folder);
  std::string cacheDownloadFilePath() const;
  std::vector<std::string> downloads() const;
  // Browser name -> its download folder.
  std::map<std::string, std::string> browserDownloadPaths() const;

  // Reads the browsers' folders, loads the cache (or without a readable one finds the partial
  // files in those folders and caches them), then watches the home folder and any browser
  // folder outside it. Blocks for the first search.
  void startMonitor();
  void stopMonotor();

  static bool isDownloads(const std::string& path);
  void profileMonitor();
  void addDownload(const std::string& path);
  void removeDownload(const std::string& path);
  // The partial files in the folders (and below), each once.
  std::vector<std::string> queryAllDownload(std::vector<std::string> folders) const;
  void archiver();
  void unarchiver();

  void fileCreated(const std::string& path) override;
  void fileMoveIn(const std::string& path) override;
  void fileMoveOut(const std::string& path) override;
  void fileMoveOrRename(const std::string& source, const std::string& target) override;
  void fileRemove(const std::string& path) override;
  // Only paths these calls can act on: the others are left out before they are queued.
  bool hearsPath(const std::string& path) const override;
  void fileModify(const std::string& path) override;

 private:
  MonitorDownload(MonitorDispatch& dispatch, XSocketServer& server,
                  const std::shared_ptr<const BrowserFolders>& folders,
                  std::shared_ptr<const FindInventory> inventory);
  // A partial file went from `path` (not into the Trash): did its download finish?
  void partialGone(const std::string& path);
  // A settings file changed: re-read the table, and search again when a folder changed.
  void settingsChanged();
  // Watches the browser folders that lie outside the home folder (and no others).
  void watchOutsideFolders();
  bool inTrash(const std::string& path) const;

  MonitorDispatch& dispatch_;
  DispatchQueue& queue_;
  const std::shared_ptr<const FindInventory> inventory_;
  const std::shared_ptr<CachedPathList> list_;
  std::shared_ptr<BrowserDownloads> rules_;

  std::mutex settingsMutex_;  // one re-read of the settings at a time
  mutable std::mutex fieldsMutex_;
  std::string home_, trash_;       // guarded by fieldsMutex_
  std::set<std::string> outside_;  // guarded by fieldsMutex_: folders watched besides home
};

}  // namespace vexa
