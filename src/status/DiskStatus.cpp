#include "vexa/status/DiskStatus.h"

#include <cstdio>

#include "status/DiskVolumes.h"
#include "status/MachineFiles.h"
#include "status/SamplerTimer.h"
#include "util/IconTheme.h"
#include "util/MountTable.h"
#include "util/PathName.h"
#include "util/XdgDirs.h"

namespace vexa {

namespace {

std::vector<MountEntry> listedVolumes(const MachineFiles& files) {
  const auto text = files.read(MachineFiles::kMountTable);
  if (!text) return {};
  return DiskVolumes::listed(MountTable::parse(*text));
}

std::optional<VolumeSpace> homeSpace() {
  return MachineFiles::underRoot("/")->volumeSpace(XdgDirs::home());
}

std::optional<VolumeSpace> bootCampSpace() {
  const auto files = MachineFiles::underRoot("/");
  for (const auto& volume : listedVolumes(*files)) {
    if (PathName::hasPrefix(PathName::lastComponent(volume.mountPoint), "BOOTCAMP")) {
      return files->volumeSpace(volume.mountPoint);
    }
  }
  return std::nullopt;
}

uint64_t totalOf(const std::optional<VolumeSpace>& space) {
  return space ? space->blockSize * space->blocks : 0;
}
uint64_t freeOf(const std::optional<VolumeSpace>& space) {
  return space ? space->blockSize * space->available : 0;
}
uint64_t usedOf(const std::optional<VolumeSpace>& space) {
  const uint64_t total = totalOf(space);
  const uint64_t free = freeOf(space);
  return total > free ? total - free : 0;
}

}  // namespace

DiskStatus* DiskStatus::shared() {
  static std::mutex lock;
  static std::shared_ptr<DiskStatus> instance;
  std::lock_guard guard(lock);
  if (!instance) instance = create("/");
  return instance.get();
}

std::shared_ptr<DiskStatus> DiskStatus::create(const std::string& root) {
  std::shared_ptr<DiskStatus> status(new DiskStatus(MachineFiles::underRoot(root)));
  status->setFreshInterval(1);
  return status;
}

DiskStatus::DiskStatus(std::shared_ptr<MachineFiles> files)
    : files_(std::move(files)), timer_(std::make_unique<SamplerTimer>()) {}

DiskStatus::~DiskStatus() { timer_->stop(); }

void DiskStatus::setFreshInterval(int32_t seconds) {
  timer_->set(seconds, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->updateInfo();
  });
}

int32_t DiskStatus::freshInterval() const { return timer_->seconds(); }

std::shared_ptr<DiskDelegate> DiskStatus::delegate() const {
  std::lock_guard guard(lock_);
  return delegate_;
}

void DiskStatus::setDelegate(std::shared_ptr<DiskDelegate> delegate) {
  std::lock_guard guard(lock_);
  delegate_ = std::move(delegate);
}

void DiskStatus::updateInfo() {
  const auto disks = sample();
  if (const auto listener = delegate()) listener->diskDetails(disks);
}

nlohmann::json DiskStatus::sample() const {
  nlohmann::json disks = nlohmann::json::array();
  for (const auto& entry : listedVolumes(*files_)) {
    // A mount point that cannot be reached (gone since the table was read) drops the volume.
    const auto space = files_->volumeSpace(entry.mountPoint);
    if (!space) continue;
    nlohmann::json volume = {{"disk_format", entry.fsType},
                             {"disk_mntfromname", entry.source},
                             {"disk_path", entry.mountPoint}};
    std::optional<std::string> label;
    if (const auto record = files_->read("/run/udev/data/b" + entry.device)) {
      label = DiskVolumes::udevLabel(*record);
    }
    volume["disk_name"] = DiskVolumes::displayName(entry.mountPoint, label);
    // Drive icons live in the desktop's theme, not in the applications' fallback theme.
    if (const auto icon = IconTheme::lookupIn(DiskVolumes::iconName(entry.fsType),
                                              {"Adwaita", "hicolor"}, "devices", 48)) {
      volume["disk_icom"] = *icon;
    }
    DiskVolumes::addSizes(volume, *space);
    if (entry.mountPoint == "/") volume["disk_backups"] = 0;
    DiskVolumes::addAccumulatedSizes(volume, false, nullptr);
    disks.push_back(std::move(volume));
  }
  return disks;
}

std::string DiskStatus::memoryFormatter(uint64_t bytes) {
  const double value = static_cast<double>(bytes);
  char text[64];
  if (value / 1000000000.0 >= 1.0) {
    std::snprintf(text, sizeof text, "%.2f GB", value / 1000000000.0);
  } else if (value / 1000000.0 >= 1.0) {
    std::snprintf(text, sizeof text, "%.2f MB", value / 1000000.0);
  } else {
    std::snprintf(text, sizeof text, "%.2f Bytes", value / 1000000.0);
  }
  return text;
}

std::string DiskStatus::totalDiskSpace() { return memoryFormatter(totalDiskSpaceInBytes()); }
std::string DiskStatus::freeDiskSpace() { return memoryFormatter(freeDiskSpaceInBytes()); }
std::string DiskStatus::usedDiskSpace() { return memoryFormatter(usedDiskSpaceInBytes()); }
uint64_t DiskStatus::totalDiskSpaceInBytes() { return totalOf(homeSpace()); }
uint64_t DiskStatus::freeDiskSpaceInBytes() { return freeOf(homeSpace()); }
uint64_t DiskStatus::usedDiskSpaceInBytes() { return usedOf(homeSpace()); }

uint64_t DiskStatus::numberOfNodes() {
  const auto space = homeSpace();
  return space ? space->nodes : 0;
}

std::optional<std::string> DiskStatus::totalBootCampSpace() {
  const auto space = bootCampSpace();
  if (!space) return std::nullopt;
  return memoryFormatter(totalOf(space));
}
std::optional<std::string> DiskStatus::freeBootCampDiskSpace() {
  const auto space = bootCampSpace();
  if (!space) return std::nullopt;
  return memoryFormatter(freeOf(space));
}
std::optional<std::string> DiskStatus::usedBootCampDiskSpace() {
  const auto space = bootCampSpace();
  if (!space) return std::nullopt;
  return memoryFormatter(usedOf(space));
}
uint64_t DiskStatus::totalBootCampDiskSpaceInBytes() { return totalOf(bootCampSpace()); }
uint64_t DiskStatus::freeBootCampDiskSpaceInBytes() { return freeOf(bootCampSpace()); }
uint64_t DiskStatus::usedBootCampDiskSpaceInBytes() { return usedOf(bootCampSpace()); }

}  // namespace vexa
