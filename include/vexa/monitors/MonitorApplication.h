#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"
#include "vexa/events/FileSystemMonitorDelegate.h"
#include "vexa/messaging/XCommandHandler.h"
#include "vexa/monitors/AppFile.h"
#include "vexa/monitors/MonitorApplicationDelegate.h"

namespace vexa {

class AppBundle;
class ApplicationCache;
class DispatchQueue;
class HostAnnouncer;
class Image;
class MonitorDispatch;
class PackageDatabase;
class XConnectClient;
class XSocketServer;

// Knows every installed application, keeps them in a compressed cache file, watches the home
// folder and the applications folders for applications that appear, move into the Trash or
// vanish, and tells the host application about them.
//
// Records are keyed by path. Installs and trashings under one of the host's install paths are
// announced to the host at once ("InstallCommand", "UninstallCommand"); deletions are confirmed
// after a delay, marked needForceRemove and kept (and cached) until the host reports it cleaned
// up after them ("ForceRemoveSuccessCommand"); the host gets the marked ones in "RemoveCommand".
// File events arrive on the dispatcher's global-queue tasks; every operation is safe from any
// thread. The table's lock is held only to change or copy the table: reading applications,
// making icons, writing the cache, calling the delegate and sending to the host all happen
// without it, so a slow disk or a host that stops reading never holds up other events. What
// the host is told goes out on a serial queue in the order the table changed.
class VEXA_EXPORT MonitorApplication : public FileSystemMonitorDelegate,
                                       public XCommandHandler,
                                       public std::enable_shared_from_this<MonitorApplication> {
 public:
  static constexpr const char* kCacheFileName = "appcache.dat";
  static constexpr double kRemoveDelaySeconds = 5.0;
  // How long a desktop entry a package manager is installing waits for its record.
  static constexpr double kPackageWaitSeconds = 10.0;
  static constexpr int kPackageWaitTurns = 40;

  // Uses the shared dispatcher and the shared socket server.
  static MonitorApplication& shared();
  static std::shared_ptr<MonitorApplication> create(MonitorDispatch& dispatch,
                                                    XSocketServer& server);
  ~MonitorApplication() override;
  MonitorApplication(const MonitorApplication&) = delete;
  MonitorApplication& operator=(const MonitorApplication&) = delete;

  std::shared_ptr<MonitorApplicationDelegate> delegate() const;
  void setDelegate(std::shared_ptr<MonitorApplicationDelegate> delegate);
  std::string cacheFolderPath() const;
  // A non-empty folder also names the cache file, "appcache.dat" inside it.
  void setCacheFolderPath(const std::string& folder);
  std::string cacheFilePath() const;
  // A snapshot of the records by path.
  std::map<std::string, std::shared_ptr<AppFile>> apps() const;
  std::vector<std::shared_ptr<AppFile>> notifyCached() const;
  std::optional<std::vector<std::string>> installPaths() const;
  void setInstallPaths(std::optional<std::vector<std::string>> paths);
  // Which package owns a desktop entry, for its version and size; this system's databases
  // unless set (tests point one at fixture trees). Null: entries keep their own values.
  std::shared_ptr<PackageDatabase> packageDatabase() const;
  void setPackageDatabase(std::shared_ptr<PackageDatabase> packages);
  // The running system's version, read once.
  const std::string& osxVersion() const { return osxVersion_; }

  // Loads the cache (or, without one, takes the inventory of every installed application and
  // writes it), then watches the home folder and both applications folders.
  void startMonitor();
  void stopMonotor();

  void archiver();
  void unarchiver();
  // Records every installed application whose path starts with one of the prefixes (all of
  // them for an empty list).
  void queryAllInstalledAppWithFilter(const std::vector<std::string>& filter);
  bool isApplication(const std::string& path) const;
  // The records marked needForceRemove.
  std::vector<std::shared_ptr<AppFile>> getAllScanApps();
  void flushCacheData();
  void sendRemoveAppToClient(const std::shared_ptr<XConnectClient>& connection) override;
  void clearForceRemovedApp(const std::vector<std::string>& paths);

  void installApp(const std::string& path);
  void uninstallApp(const std::string& path);
  void removeApp(const std::string& path, double seconds);

  // Fills a record from an application's path; false when it is not one to report.
  bool wBscInfoFrPath(const std::string& path, AppFile& app) const;
  static void formatAppPath(std::string& path);
  std::optional<std::string> getOrCreateIconPath(const nlohmann::json& info,
                                                 const std::string& path,
                                                 const std::optional<std::string>& cacheName) const;
  std::string createThumb(const std::string& source, const std::string& cacheName) const;
  std::shared_ptr<Image> getDefaultAppIcon() const;
  static std::optional<nlohmann::json> dicForMDItem(
      const std::string& path, const std::optional<std::vector<std::string>>& names);
  // The path of the installed application with this identifier, if any.
  static std::optional<std::string> pathForAppWithIdentifier(const std::string& identifier);

  // File events.
  void fileCreated(const std::string& path) override;
  void fileMoveIn(const std::string& path) override;
  void fileMoveOut(const std::string& path) override;
  // Installers write under a temporary name and rename into place (package managers' ".dpkg-new",
  // editors' ".goutputstream-", partial downloads): an application that appears by such a rename
  // is installed, one renamed over another is updated, and one renamed away to a name that is
  // not an application's is removed. A rename from one application name to another is left
  // alone.
  void fileMoveOrRename(const std::string& source, const std::string& target) override;
  void fileRemove(const std::string& path) override;
  // Events were lost under the folder: applications that appeared there meanwhile are
  // installed and announced, recorded ones that went are checked as deletions.
  void eventsLost(const std::string& folder) override;

  // The host's commands.
  void setInstallPaths(const nlohmann::json& paths) override;
  void clearForceRemovedApp(const nlohmann::json& paths) override;
  void hostConnected(const std::shared_ptr<XConnectClient>& connection) override;

 private:
  // Records are shared and never changed once stored: a change stores a new record, so a
  // snapshot of the table can be read without the lock.
  using Records = std::map<std::string, std::shared_ptr<const AppFile>>;
  // The table as it was at one change; generations count the changes that rewrite the cache.
  struct Snapshot {
    Records records;
    uint64_t generation = 0;
  };

  MonitorApplication(MonitorDispatch& dispatch, XSocketServer& server);
  // Records the application opened at `path` (nothing when `bundle` is null) and announces it.
  // With `onlyWhenChanged`, a record equal to the stored one (dates of use aside) is neither
  // stored nor announced: the dispatcher reports a rename once for each side it watches.
  void install(const std::string& path, std::unique_ptr<AppBundle> bundle,
               bool onlyWhenChanged = false);
  // install() of the application at `path` once the package database has recorded the change
  // (a package manager renames its files into place before it records them), polling for at
  // most kPackageWaitSeconds; `waited` counts the polls so far.
  void installRecorded(const std::string& path, bool onlyWhenChanged, int waited = 0);
  // Records the application opened (or not) at a path in the Trash as removed and reports it,
  // unless the path has a record by the time the table is changed.
  void uninstall(const std::string& path, std::unique_ptr<AppBundle> bundle);
  // Marks `app`, still the record of the deleted `path` when stored, removed, and reports it.
  void confirmRemoval(const std::string& path, const std::shared_ptr<const AppFile>& app);
  // The send of a message about `app` to the host; empty when the host is not connected or
  // `path` lies under none of its install paths. Runs without the lock.
  std::function<void()> announcement(const std::string& name, const std::string& path,
                                     const AppFile& app) const;
  std::shared_ptr<const AppFile> recordAt(const std::string& path) const;
  // Called with lock_ held.
  Snapshot snapshotLocked();
  // Writes the snapshot unless a later one is on disk already. Blocks on the disk: called
  // without the lock.
  void writeCache(const Snapshot& snapshot);

  MonitorDispatch& dispatch_;
  DispatchQueue& queue_;
  const std::unique_ptr<HostAnnouncer> announcer_;
  const std::unique_ptr<ApplicationCache> cache_;
  const std::string osxVersion_;
  const nlohmann::json systemFilter_;
  const nlohmann::json specialFilter_;
  const nlohmann::json groupFilter_;

  // Guards the table and the snapshot counter. Held for no disk, picture, delegate or socket
  // work.
  mutable std::mutex lock_;
  bool appsCreated_ = false;
  Records apps_;
  uint64_t cacheGeneration_ = 0;  // of the last snapshot taken

  mutable std::mutex fieldsMutex_;  // the properties below
  std::shared_ptr<MonitorApplicationDelegate> delegate_;
  std::string cacheFolderPath_;
  std::string cacheFilePath_;
  std::vector<std::shared_ptr<AppFile>> notifyCached_;
  std::optional<std::vector<std::string>> installPaths_;
  std::shared_ptr<PackageDatabase> packages_;
};

}  // namespace vexa
