#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"
#include "vexa/status/DiskDelegate.h"

namespace vexa {

class MachineFiles;
class SamplerTimer;

// Samples the mounted local volumes every freshInterval seconds (1 by default) on the run loop
// of the thread that created it or last changed the interval. Each volume is a dictionary:
//
//   "disk_format" (file-system type), "disk_mntfromname" (device), "disk_path" (mount point),
//   "disk_name" (the file system's label, else the mount point's last component, "Filesystem
//   root" for an unlabelled "/"), "disk_icom" (a themed drive icon file, when the theme has
//   one), "disk_totalsize", "disk_freesize" (available to users), "disk_usedsize" (total minus
//   available) in bytes, "disk_backups" = 0 on "/" only, and "has_accumulated_sizes" = false:
//   Linux keeps no per-volume index of category sizes.
//
// Listed: local disk file systems (ext2/3/4, btrfs, xfs, f2fs, vfat/msdos, exfat, ntfs/ntfs3/
// fuseblk, hfs/hfsplus, ufs, iso9660, udf), once per file system, without /boot, /efi and
// mounts marked "x-gvfs-hide".
class VEXA_EXPORT DiskStatus : public std::enable_shared_from_this<DiskStatus> {
 public:
  static DiskStatus* shared();
  // A sampler of the machine under `root` (mount table, udev labels and mount points all read
  // under it), sampling every second on the calling thread's run loop.
  static std::shared_ptr<DiskStatus> create(const std::string& root = "/");
  ~DiskStatus();
  DiskStatus(const DiskStatus&) = delete;
  DiskStatus& operator=(const DiskStatus&) = delete;

  void setFreshInterval(int32_t seconds);
  int32_t freshInterval() const;
  // One sample now, on the calling thread.
  void updateInfo();
  std::shared_ptr<DiskDelegate> delegate() const;
  void setDelegate(std::shared_ptr<DiskDelegate> delegate);

  // Decimal units: "%.2f GB", else "%.2f MB", else the size in megabytes followed by "Bytes"
  // (500,000 bytes reads "0.50 Bytes").
  static std::string memoryFormatter(uint64_t bytes);

  // The volume holding the home folder ($HOME); 0 (and "0.00 Bytes") when it cannot be read.
  static std::string totalDiskSpace();
  static std::string freeDiskSpace();
  static std::string usedDiskSpace();
  static uint64_t totalDiskSpaceInBytes();
  static uint64_t freeDiskSpaceInBytes();
  static uint64_t usedDiskSpaceInBytes();
  // Its file nodes in all.
  static uint64_t numberOfNodes();

  // The first listed volume whose mount point's last component begins "BOOTCAMP"; 0 and
  // nothing without one.
  static std::optional<std::string> totalBootCampSpace();
  static std::optional<std::string> freeBootCampDiskSpace();
  static std::optional<std::string> usedBootCampDiskSpace();
  static uint64_t totalBootCampDiskSpaceInBytes();
  static uint64_t freeBootCampDiskSpaceInBytes();
  static uint64_t usedBootCampDiskSpaceInBytes();

  // The volume dictionaries of one sample, without a delegate.
  nlohmann::json sample() const;

 private:
  explicit DiskStatus(std::shared_ptr<MachineFiles> files);

  std::shared_ptr<MachineFiles> files_;
  std::unique_ptr<SamplerTimer> timer_;
  mutable std::mutex lock_;
  std::shared_ptr<DiskDelegate> delegate_;
};

}  // namespace vexa
