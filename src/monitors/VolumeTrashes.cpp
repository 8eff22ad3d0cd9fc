#include "monitors/VolumeTrashes.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <utility>

namespace vexa {

namespace {

std::string under(const std::string& top, const std::string& name) {
  return (top == "/" ? "" : top) + "/" + name;
}

// A real folder (a link is not followed) owned by `uid`, when `uid` is given.
bool isOwnFolder(const std::string& path, const unsigned* uid, struct stat* st) {
  if (::lstat(path.c_str(), st) != 0 || !S_ISDIR(st->st_mode)) return false;
  return !uid || st->st_uid == *uid;
}

}  // namespace

bool VolumeTrashes::isPseudo(const std::string& fsType) {
  // A constant with nothing to destroy: a measurement on a worker may still ask while the
  // process exits.
  static constexpr std::array<std::string_view, 21> kPseudo{
      "autofs", "binfmt_misc", "bpf",        "cgroup",     "cgroup2",   "configfs", "debugfs",
      "devpts", "devtmpfs",    "efivarfs",   "fusectl",    "hugetlbfs", "mqueue",   "nsfs",
      "proc",   "pstore",      "rpc_pipefs", "securityfs", "selinuxfs", "sysfs",    "tracefs"};
  return std::find(kPseudo.begin(), kPseudo.end(), fsType) != kPseudo.end();
}

std::string VolumeTrashes::trashOf(const std::string& top, unsigned uid) {
  const std::string id = std::to_string(uid);
  std::vector<std::string> candidates;
  struct stat st {};
  const std::string shared = under(top, ".Trash");
  if (isOwnFolder(shared, nullptr, &st) && (st.st_mode & S_ISVTX) != 0) {
    candidates.push_back(shared + "/" + id);
  }
  candidates.push_back(under(top, ".Trash-" + id));
  for (const auto& trash : candidates) {
    if (isOwnFolder(trash, &uid, &st) && isOwnFolder(trash + "/files", nullptr, &st)) {
      return trash + "/files";
    }
  }
  return {};
}

std::vector<std::string> VolumeTrashes::find(const std::vector<MountEntry>& mounts,
                                             const std::string& homeTrash, unsigned uid) {
  struct stat st {};
  const bool haveHome = !homeTrash.empty() && ::stat(homeTrash.c_str(), &st) == 0;
  const dev_t homeDevice = st.st_dev;
  std::set<std::pair<dev_t, ino_t>> seen;
  std::vector<std::string> trashes;
  for (const auto& mount : mounts) {
    if (isPseudo(mount.fsType) || mount.mountPoint.empty() || mount.mountPoint[0] != '/') continue;
    if (::lstat(mount.mountPoint.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) continue;
    if (haveHome && st.st_dev == homeDevice) continue;
    std::string trash = trashOf(mount.mountPoint, uid);
    if (trash.empty() || ::lstat(trash.c_str(), &st) != 0) continue;
    if (seen.insert({st.st_dev, st.st_ino}).second) trashes.push_back(std::move(trash));
  }
  return trashes;
}

std::vector<std::string> VolumeTrashes::find(const std::string& tablePath,
                                             const std::string& homeTrash) {
  return find(MountTable::read(tablePath), homeTrash, static_cast<unsigned>(::getuid()));
}

}  // namespace vexa
