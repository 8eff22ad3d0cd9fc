#include "status/DiskVolumes.h"

#include <array>
#include <set>

#include "status/MachineFiles.h"
#include "util/PathName.h"

namespace vexa {

namespace {

constexpr std::array<std::string_view, 19> kAcceptedTypes = {
    "ext2",  "ext3",    "ext4", "btrfs",   "xfs", "f2fs",    "vfat", "msdos",  "exfat", "ntfs",
    "ntfs3", "fuseblk", "hfs",  "hfsplus", "ufs", "iso9660", "udf",  "cd9660", "cddafs"};

bool atOrBelow(std::string_view path, std::string_view folder) {
  return path == folder || (PathName::hasPrefix(path, folder) && path.size() > folder.size() &&
                            path[folder.size()] == '/');
}

bool hasOption(std::string_view options, std::string_view wanted) {
  size_t at = 0;
  while (at <= options.size()) {
    size_t end = options.find(',', at);
    if (end == std::string_view::npos) end = options.size();
    if (options.substr(at, end - at) == wanted) return true;
    at = end + 1;
  }
  return false;
}

}  // namespace

bool DiskVolumes::acceptsType(std::string_view type) {
  for (const auto accepted : kAcceptedTypes) {
    if (type == accepted) return true;
  }
  return false;
}

std::vector<MountEntry> DiskVolumes::listed(const std::vector<MountEntry>& table) {
  std::vector<MountEntry> volumes;
  std::set<std::string> devices;
  for (const auto& entry : table) {
    if (!acceptsType(entry.fsType) || hasOption(entry.options, "x-gvfs-hide")) continue;
    if (atOrBelow(entry.mountPoint, "/boot") || atOrBelow(entry.mountPoint, "/efi")) continue;
    // A file system seen again is a bind mount or another btrfs subvolume of one already
    // listed: same space, same device. A table without device numbers falls back to the source.
    const std::string& identity = entry.device.empty() ? entry.source : entry.device;
    if (!devices.insert(identity).second) continue;
    volumes.push_back(entry);
  }
  return volumes;
}

std::string DiskVolumes::displayName(const std::string& mountPoint,
                                     const std::optional<std::string>& label) {
  if (label && !label->empty()) return *label;
  if (PathName::withoutTrailingSlashes(mountPoint) == "/") return "Filesystem root";
  return PathName::lastComponent(PathName::withoutTrailingSlashes(mountPoint));
}

std::optional<std::string> DiskVolumes::udevLabel(std::string_view record) {
  constexpr std::string_view kKey = "E:ID_FS_LABEL=";
  size_t at = 0;
  while (at < record.size()) {
    size_t end = record.find('\n', at);
    if (end == std::string_view::npos) end = record.size();
    const std::string_view line = record.substr(at, end - at);
    if (PathName::hasPrefix(line, kKey) && line.size() > kKey.size()) {
      return std::string(line.substr(kKey.size()));
    }
    at = end + 1;
  }
  return std::nullopt;
}

void DiskVolumes::addSizes(nlohmann::json& volume, const VolumeSpace& space) {
  const uint64_t available = std::min(space.available, space.blocks);
  volume["disk_totalsize"] = space.blockSize * space.blocks;
  volume["disk_freesize"] = space.blockSize * space.available;
  volume["disk_usedsize"] = (space.blocks - available) * space.blockSize;
}

void DiskVolumes::addAccumulatedSizes(nlohmann::json& volume, bool indexed,
                                      const nlohmann::json& sizes) {
  if (!indexed) {
    volume["has_accumulated_sizes"] = false;
    return;
  }
  if (!sizes.is_array()) return;
  struct Category {
    size_t element;
    const char* key;
  };
  constexpr Category kCategories[] = {
      {6, "disk_movies"}, {7, "disk_apps"}, {9, "disk_audio"}, {12, "disk_photos"}};
  uint64_t sum = 0;
  for (const auto& category : kCategories) {
    if (sizes.size() <= category.element) break;
    const auto& value = sizes[category.element];
    volume[category.key] = value;
    if (value.is_number_unsigned()) {
      sum += value.get<uint64_t>();
    } else if (value.is_number()) {
      const double number = value.get<double>();
      if (number > 0) sum += static_cast<uint64_t>(number);
    }
  }
  const uint64_t used = volume.value("disk_usedsize", uint64_t{0});
  if (used <= sum) {
    volume["has_accumulated_sizes"] = false;
    return;
  }
  volume["disk_other"] = used - sum;
  volume["has_accumulated_sizes"] = true;
}

std::string DiskVolumes::iconName(std::string_view type) {
  if (type == "iso9660" || type == "udf" || type == "cd9660" || type == "cddafs") {
    return "media-optical";
  }
  if (type == "vfat" || type == "msdos" || type == "exfat") return "drive-removable-media";
  return "drive-harddisk";
}

}  // namespace vexa
