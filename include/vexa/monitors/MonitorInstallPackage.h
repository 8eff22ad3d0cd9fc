#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vexa/Export.h"
#include "vexa/events/FileSystemMonitorDelegate.h"

namespace vexa {

class CachedPathList;
class DispatchQueue;
class FindInventory;
class MonitorDispatch;
class XSocketServer;

// Keeps the list of installer packages and disk images anywhere under the home folder (by
// extension, case-sensitive: "pkg", "dmg", "deb", "rpm", "snap", "flatpak", "flatpakref",
// "run"), persists it in "packagecache.dat" and tells the host each time one appears
// ("PackageAdd" {"Path"}) or goes ("PackageRemove" {"Path"}).
//
// File events only schedule work: adds and removals run as tasks on the global queue, in any
// order relative to one another; an add finds the path gone (created and renamed away in one
// batch) and does nothing. Every operation is safe from any thread.
class VEXA_EXPORT MonitorInstallPackage
    : public FileSystemMonitorDelegate,
      public std::enable_shared_from_this<MonitorInstallPackage> {
 public:
  static constexpr const char* kCacheFileName = "packagecache.dat";

  // Uses the shared dispatcher and the shared socket server.
  static MonitorInstallPackage& shared();
  // `inventory` runs find (the system's find and helper when null).
  static std::shared_ptr<MonitorInstallPackage> create(
      MonitorDispatch& dispatch, XSocketServer& server,
      std::shared_ptr<const FindInventory> inventory = nullptr);
  ~MonitorInstallPackage() override;
  MonitorInstallPackage(const MonitorInstallPackage&) = delete;
  MonitorInstallPackage& operator=(const MonitorInstallPackage&) = delete;

  std::string cacheFolderPath() const;
  // A non-empty folder also names the cache file, "packagecache.dat" inside it.
  void setCacheFolderPath(const std::string& folder);
  std::string cacheFilePath() const;
  std::vector<std::string> packages() const;

  // Loads the cache, or without a readable one takes the inventory and writes it; then watches
  // the home folder. With a non-empty cache the inventory is taken again in the background and
  // what it finds is announced. Blocks for the first inventory.
  void startMonitor();
  void stopMonotor();

  static bool isInstallPackage(const std::string& path);
  void addPackage(const std::string& path);
  void removePackage(const std::string& path);
  // Every package under the home folder, by find.
  std::vector<std::string> queryAllInstallPackage() const;
  // Writes the cache now (after any write under way).
  void archiver();
  void unarchiver();

  void fileCreated(const std::string& path) override;
  void fileMoveIn(const std::string& path) override;
  void fileMoveOut(const std::string& path) override;
  // A package renamed keeps its place under the new name, whatever that is; a file renamed to a
  // package's name (a finished download) is added.
  void fileMoveOrRename(const std::string& source, const std::string& target) override;
  void fileRemove(const std::string& path) override;
  // Only paths these calls can act on: the others are left out before they are queued.
  bool hearsPath(const std::string& path) const override;

 private:
  MonitorInstallPackage(MonitorDispatch& dispatch, XSocketServer& server,
                        std::shared_ptr<const FindInventory> inventory);

  MonitorDispatch& dispatch_;
  DispatchQueue& queue_;
  const std::shared_ptr<const FindInventory> inventory_;
  const std::shared_ptr<CachedPathList> list_;

  mutable std::mutex fieldsMutex_;
  std::string home_;  // guarded by fieldsMutex_
};

}  // namespace vexa
