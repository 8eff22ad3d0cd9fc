#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "monitors/PackageDatabase.h"
#include "monitors/PackageMetadata.h"

namespace vexa {

// The dpkg database (var/lib/dpkg), Flatpak installations (any ".../exports/share/applications"
// beside an "app" folder: the system's var/lib/flatpak and the user's ~/.local/share/flatpak) and
// snapd (var/lib/snapd, snap) below one root folder.
//
// dpkg: the first question indexes every desktop entry that an installed package's .list names
// (only ".desktop" paths are kept: a few hundred entries instead of every file of the system);
// the index is rebuilt when the status file's inode, size or modification time has changed,
// checked on each question (one stat). A path listed by two packages belongs to the one whose
// name, then architecture, sorts first, whatever order the status file keeps. Diversions are
// not applied.
class LinuxPackageDatabase : public PackageDatabase {
 public:
  explicit LinuxPackageDatabase(std::string root = "/");
  std::optional<PackageOwner> ownerOf(const std::string& path) override;
  bool caughtUpWith(const std::string& path) override;

 private:
  // The path below the root of a desktop entry there ("/usr/share/applications/x.desktop").
  std::optional<std::string> entryBelowRoot(const std::string& path) const;
  struct StatusStamp {
    dev_t device = 0;
    ino_t inode = 0;
    int64_t size = -1;
    int64_t mtimeNs = 0;
    bool operator==(const StatusStamp&) const = default;
  };
  struct Package {
    PackageMetadata::DpkgPackage fields;
    std::string listPath;
    std::optional<uint64_t> listedBytes;  // the .list's files, summed on first need
  };

  // `relative` is the path below the root, starting with "/".
  std::optional<PackageOwner> dpkgOwner(const std::string& relative);
  std::optional<PackageOwner> flatpakOwner(const std::string& path);
  std::optional<PackageOwner> snapOwner(const std::string& relative);
  // Allocated bytes below a resolved deployment folder, walked once per deployment (a new
  // commit is a new folder).
  uint64_t deploymentSize(const std::string& deployment);
  void rebuildLocked(const StatusStamp& stamp);
  uint64_t listedBytes(const std::string& listPath) const;

  const std::string root_;  // without a trailing slash; "" for "/"

  std::mutex mutex_;  // the dpkg index and the deployment sizes
  std::optional<StatusStamp> stamp_;
  std::vector<Package> packages_;
  std::unordered_map<std::string, size_t> owners_;  // desktop entry -> index in packages_
  std::map<std::string, uint64_t> deploymentBytes_;
};

}  // namespace vexa
