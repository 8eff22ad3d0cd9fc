#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "util/MountTable.h"

namespace vexa {

struct VolumeSpace;

// Which mounts DiskStatus lists and how it names them: pure rules over a parsed mount table.
class DiskVolumes {
 public:
  // Local disk file systems, by their Linux type names. Network, memory, overlay, squashfs,
  // apfs and other FUSE file systems are never listed.
  static bool acceptsType(std::string_view type);
  // The mounts to list, in table order: accepted types only, the first mount of each file system
  // (later ones are bind mounts or btrfs subvolumes of it), none marked "x-gvfs-hide", none at
  // or below /boot and /efi.
  static std::vector<MountEntry> listed(const std::vector<MountEntry>& table);
  // The file system's label, else the mount point's last component; an unlabelled "/" is
  // "Filesystem root".
  static std::string displayName(const std::string& mountPoint,
                                 const std::optional<std::string>& label);
  // ID_FS_LABEL of a udev database record ("E:ID_FS_LABEL=..." lines); nothing when absent or
  // empty.
  static std::optional<std::string> udevLabel(std::string_view record);
  // The size keys of a volume dictionary: total, available and used (total minus available).
  static void addSizes(nlohmann::json& volume, const VolumeSpace& space);
  // The category keys from an index's accumulated sizes. `indexed` false: the volume has no
  // index item ("has_accumulated_sizes" false). Otherwise `sizes` is the item's attribute: not
  // an array adds nothing; an array adds "disk_movies" (element 6), "disk_apps" (7),
  // "disk_audio" (9) and "disk_photos" (12) where it is long enough, then "disk_other" and
  // "has_accumulated_sizes" true when the used size exceeds their sum, else false.
  static void addAccumulatedSizes(nlohmann::json& volume, bool indexed,
                                  const nlohmann::json& sizes);
  // The themed icon name for a volume of this type.
  static std::string iconName(std::string_view type);
};

}  // namespace vexa
