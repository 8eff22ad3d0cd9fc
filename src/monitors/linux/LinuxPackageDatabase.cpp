#include "monitors/linux/LinuxPackageDatabase.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <tuple>

#include "util/AtomicFile.h"
#include "util/PathName.h"
#include "util/UniqueFd.h"

namespace vexa {

namespace {

constexpr std::size_t kStatusLimit = std::size_t{256} << 20;
constexpr std::size_t kListLimit = std::size_t{64} << 20;
constexpr std::size_t kMetadataLimit = std::size_t{1} << 20;
// A deployment walk stops after this many entries or this depth: a size is an estimate, and
// a question must never take long.
constexpr std::size_t kWalkEntries = 200000;
constexpr int kWalkDepth = 48;
constexpr std::size_t kListedFiles = 200000;
constexpr std::string_view kDesktop = ".desktop";
constexpr std::string_view kFlatpakExports = "/exports/share/applications/";
constexpr std::string_view kSnapEntries = "/var/lib/snapd/desktop/applications/";

bool endsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

// Allocated bytes of everything below the open folder `dir`, links never followed.
void addAllocated(int dir, int depth, std::size_t& entries, uint64_t& bytes) {
  UniqueFd owned(dir);
  DIR* stream = ::fdopendir(owned.get());
  if (!stream) return;
  owned.release();  // the stream owns it now
  while (const dirent* entry = ::readdir(stream)) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (++entries > kWalkEntries) break;
    struct stat st {};
    if (::fstatat(::dirfd(stream), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    bytes += static_cast<uint64_t>(st.st_blocks) * 512;
    if (S_ISDIR(st.st_mode) && depth < kWalkDepth) {
      const int child =
          ::openat(::dirfd(stream), entry->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (child >= 0) addAllocated(child, depth + 1, entries, bytes);
    }
  }
  ::closedir(stream);
}

std::optional<std::string> resolved(const std::string& path) {
  char buffer[PATH_MAX];
  if (!::realpath(path.c_str(), buffer)) return std::nullopt;
  return std::string(buffer);
}

// A regular file's bytes. Anything else (a FIFO would block the open) is not read.
std::optional<std::string> readRegular(const std::string& path, std::size_t limit) {
  if (!PathName::isRegularFile(path)) return std::nullopt;
  return AtomicFile::read(path, limit);
}

// The root as a prefix of the paths below it: "" for "/".
std::string rootPrefix(std::string root) {
  root = PathName::withoutTrailingSlashes(std::move(root));
  return root == "/" ? std::string() : root;
}

}  // namespace

std::shared_ptr<PackageDatabase> PackageDatabase::system(const std::string& root) {
  return std::make_shared<LinuxPackageDatabase>(root);
}

LinuxPackageDatabase::LinuxPackageDatabase(std::string root) : root_(rootPrefix(std::move(root))) {}

std::optional<std::string> LinuxPackageDatabase::entryBelowRoot(const std::string& path) const {
  if (!endsWith(path, kDesktop)) return std::nullopt;
  if (!root_.empty() && !PathName::isWithin(path, root_)) return std::nullopt;
  std::string relative = path.substr(root_.size());
  if (relative.empty() || relative.front() != '/') return std::nullopt;
  return relative;
}

std::optional<PackageOwner> LinuxPackageDatabase::ownerOf(const std::string& path) {
  if (!endsWith(path, kDesktop)) return std::nullopt;
  if (auto owner = flatpakOwner(path)) return owner;
  const auto relative = entryBelowRoot(path);
  if (!relative) return std::nullopt;
  if (auto owner = snapOwner(*relative)) return owner;
  return dpkgOwner(*relative);
}

bool LinuxPackageDatabase::caughtUpWith(const std::string& path) {
  // Flatpak and Snap are read from the installed files themselves, which are in place before
  // their exports appear; only dpkg keeps a separate record, written after its renames, and only
  // for the system's own folders (/usr/local is the administrator's, home folders the user's).
  const auto relative = entryBelowRoot(path);
  if (!relative) return true;
  const bool dpkgFolder =
      (PathName::hasPrefix(*relative, "/usr/") && !PathName::hasPrefix(*relative, "/usr/local/")) ||
      PathName::hasPrefix(*relative, "/opt/");
  if (!dpkgFolder) return true;
  struct stat status {};
  struct stat entry {};
  if (::stat((root_ + "/var/lib/dpkg/status").c_str(), &status) != 0) return true;
  if (::lstat(path.c_str(), &entry) != 0) return true;
  return std::tie(status.st_mtim.tv_sec, status.st_mtim.tv_nsec) >=
         std::tie(entry.st_ctim.tv_sec, entry.st_ctim.tv_nsec);
}

std::optional<PackageOwner> LinuxPackageDatabase::dpkgOwner(const std::string& relative) {
  const std::string statusPath = root_ + "/var/lib/dpkg/status";
  struct stat st {};
  if (::stat(statusPath.c_str(), &st) != 0) return std::nullopt;
  const StatusStamp stamp{
      st.st_dev, st.st_ino, static_cast<int64_t>(st.st_size),
      static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
  std::lock_guard lock(mutex_);
  if (stamp_ != stamp) rebuildLocked(stamp);
  auto it = owners_.find(relative);
  if (it == owners_.end()) return std::nullopt;
  Package& package = packages_[it->second];
  PackageOwner owner{PackageOwner::Manager::Dpkg, package.fields.name, package.fields.version,
                     std::nullopt};
  if (package.fields.installedKiB) {
    owner.installedSize = *package.fields.installedKiB * 1024;
  } else {
    if (!package.listedBytes) package.listedBytes = listedBytes(package.listPath);
    owner.installedSize = package.listedBytes;
  }
  return owner;
}

void LinuxPackageDatabase::rebuildLocked(const StatusStamp& stamp) {
  stamp_ = stamp;
  packages_.clear();
  owners_.clear();
  auto status = readRegular(root_ + "/var/lib/dpkg/status", kStatusLimit);
  if (!status) return;
  for (auto& fields : PackageMetadata::parseDpkgStatus(*status)) {
    packages_.push_back(Package{std::move(fields), {}, std::nullopt});
  }
  // The first package in this order claims a path that two list.
  std::sort(packages_.begin(), packages_.end(), [](const Package& a, const Package& b) {
    return std::tie(a.fields.name, a.fields.architecture) <
           std::tie(b.fields.name, b.fields.architecture);
  });
  const std::string info = root_ + "/var/lib/dpkg/info/";
  for (size_t i = 0; i < packages_.size(); ++i) {
    Package& package = packages_[i];
    // Multi-arch "same" packages name their list "NAME:ARCH.list".
    std::vector<std::string> candidates;
    if (!package.fields.architecture.empty()) {
      candidates.push_back(info + package.fields.name + ":" + package.fields.architecture +
                           ".list");
    }
    candidates.push_back(info + package.fields.name + ".list");
    std::optional<std::string> list;
    for (const std::string& candidate : candidates) {
      if ((list = readRegular(candidate, kListLimit))) {
        package.listPath = candidate;
        break;
      }
    }
    if (!list) continue;
    for (const std::string_view path : PackageMetadata::listedPaths(*list)) {
      if (endsWith(path, kDesktop)) owners_.emplace(std::string(path), i);
    }
  }
}

uint64_t LinuxPackageDatabase::listedBytes(const std::string& listPath) const {
  uint64_t bytes = 0;
  std::size_t files = 0;
  auto list = listPath.empty() ? std::nullopt : readRegular(listPath, kListLimit);
  if (!list) return 0;
  for (const std::string_view line : PackageMetadata::listedPaths(*list)) {
    if (++files > kListedFiles) break;
    struct stat st {};
    const std::string path = root_ + std::string(line);
    if (::lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
      bytes += static_cast<uint64_t>(st.st_size);
    }
  }
  return bytes;
}

std::optional<PackageOwner> LinuxPackageDatabase::flatpakOwner(const std::string& path) {
  const size_t at = path.rfind(kFlatpakExports);
  if (at == std::string::npos) return std::nullopt;
  const std::string installation = path.substr(0, at);
  std::string id = path.substr(at + kFlatpakExports.size());
  if (id.find('/') != std::string::npos) return std::nullopt;
  id.resize(id.size() - kDesktop.size());
  // An application may export "ID.desktop" or "ID.something.desktop".
  for (;;) {
    std::string active = installation;
    active.append("/app/").append(id).append("/current/active");
    if (PathName::isFolder(active)) {
      PackageOwner owner{PackageOwner::Manager::Flatpak, id, std::nullopt, std::nullopt};
      for (const char* suffix : {".metainfo.xml", ".appdata.xml"}) {
        for (const char* folder : {"/files/share/metainfo/", "/files/share/appdata/"}) {
          if (owner.version) break;
          std::string file = active;
          file.append(folder).append(id).append(suffix);
          if (auto xml = readRegular(file, kMetadataLimit)) {
            owner.version = PackageMetadata::firstReleaseVersion(*xml);
          }
        }
      }
      const auto deployment = resolved(active);
      if (!deployment) return owner;
      owner.installedSize = deploymentSize(*deployment);
      return owner;
    }
    const size_t dot = id.rfind('.');
    if (dot == std::string::npos || id.find('.') == dot) return std::nullopt;
    id.resize(dot);
  }
}

// Walked without the lock, so that other questions go on meanwhile; two threads may both walk a
// deployment not known yet, and both find the same.
uint64_t LinuxPackageDatabase::deploymentSize(const std::string& deployment) {
  {
    std::lock_guard lock(mutex_);
    auto known = deploymentBytes_.find(deployment);
    if (known != deploymentBytes_.end()) return known->second;
  }
  uint64_t bytes = 0;
  std::size_t entries = 0;
  const int dir = ::open(deployment.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) addAllocated(dir, 0, entries, bytes);
  std::lock_guard lock(mutex_);
  deploymentBytes_[deployment] = bytes;
  return bytes;
}

std::optional<PackageOwner> LinuxPackageDatabase::snapOwner(const std::string& relative) {
  if (!PathName::hasPrefix(relative, kSnapEntries)) return std::nullopt;
  const std::string file = relative.substr(kSnapEntries.size());
  const size_t underscore = file.find('_');
  if (underscore == std::string::npos || underscore == 0 || file.find('/') != std::string::npos) {
    return std::nullopt;
  }
  const std::string name = file.substr(0, underscore);
  const std::string current = root_ + "/snap/" + name + "/current";
  if (!PathName::isFolder(current)) return std::nullopt;
  PackageOwner owner{PackageOwner::Manager::Snap, name, std::nullopt, std::nullopt};
  if (auto yaml = readRegular(current + "/meta/snap.yaml", kMetadataLimit)) {
    owner.version = PackageMetadata::snapVersion(*yaml);
  }
  char target[PATH_MAX];
  const ssize_t n = ::readlink(current.c_str(), target, sizeof target - 1);
  if (n > 0) {
    const std::string revision = PathName::lastComponent(std::string(target, size_t(n)));
    struct stat st {};
    const std::string snap = root_ + "/var/lib/snapd/snaps/" + name + "_" + revision + ".snap";
    if (::stat(snap.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
      owner.installedSize = static_cast<uint64_t>(st.st_size);
    }
  }
  return owner;
}

}  // namespace vexa
