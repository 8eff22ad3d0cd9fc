#pragma once

#include <string>
#include <vector>

#include "util/MountTable.h"

namespace vexa {

// The Trashes of the mounted file systems other than the home folder's: "$top/.Trash/$uid/files"
// when "$top/.Trash" is a sticky folder and not a link, else "$top/.Trash-$uid/files".
//
// Only Trashes that exist are listed (none is ever made on another volume): each must be a real
// folder, not a link, owned by the user, and hold a "files" folder that is not a link. A file
// system mounted twice (or bound elsewhere) is listed once. The lookups are lstat calls on each
// mount point, so a hung network mount can hold the caller up: call from a worker.
class VolumeTrashes {
 public:
  // Trash "files" folders in mount-table order, leaving out the file system of `homeTrash`
  // and those of kernel pseudo file systems.
  static std::vector<std::string> find(const std::vector<MountEntry>& mounts,
                                       const std::string& homeTrash, unsigned uid);
  // find() over the mount table at `tablePath`, for the calling user.
  static std::vector<std::string> find(const std::string& tablePath, const std::string& homeTrash);
  // The Trash "files" folder on the file system mounted at `top`, or "" when it has none.
  static std::string trashOf(const std::string& top, unsigned uid);
  // File systems that never hold user files (proc, sysfs, cgroup...) or that must not be
  // touched (autofs: a lookup would mount it). tmpfs and ramfs are not among them: a tmpfs /tmp
  // or a RAM disk takes trashed files like any other volume.
  static bool isPseudo(const std::string& fsType);
};

}  // namespace vexa
