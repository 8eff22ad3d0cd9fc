#include "vexa/status/ExternalDiskMonitor.h"

#include <set>
#include <vector>

#include "status/BlockDeviceEvents.h"
#include "status/DiskVolumes.h"
#include "status/MachineFiles.h"
#include "util/MountTable.h"
#include "util/MountWatch.h"
#include "util/PathName.h"
#include "vexa/util/DispatchQueue.h"

namespace vexa {

namespace {

// The longest a worker waits between looks at the table: nothing signals changes while
// startMonitor is not running.
constexpr std::chrono::milliseconds kLongestWait(1000);

}  // namespace

ExternalDiskMonitor& ExternalDiskMonitor::shared() {
  static ExternalDiskMonitor instance(BlockDeviceEvents::system(), MachineFiles::underRoot("/"));
  return instance;
}

ExternalDiskMonitor::ExternalDiskMonitor(std::unique_ptr<BlockDeviceEvents> events,
                                         std::shared_ptr<MachineFiles> files,
                                         std::chrono::milliseconds giveUp)
    : events_(std::move(events)),
      files_(std::move(files)),
      giveUp_(giveUp),
      queue_(
          std::make_unique<DispatchQueue>("com.dispatch.mount", DispatchQueue::Kind::Concurrent)) {}

ExternalDiskMonitor::~ExternalDiskMonitor() {
  endMonitor();
  // Workers still waiting find their device gone and end.
  stopMonitor();
  std::unique_lock guard(lock_);
  lookingDone_.wait(guard, [this] { return looking_ == 0; });
}

std::shared_ptr<ExternalDiskDelegate> ExternalDiskMonitor::delegate() const {
  std::lock_guard guard(lock_);
  return delegate_;
}

void ExternalDiskMonitor::setDelegate(std::shared_ptr<ExternalDiskDelegate> delegate) {
  std::lock_guard guard(lock_);
  delegate_ = std::move(delegate);
}

void ExternalDiskMonitor::startMonitor() {
  if (running_.exchange(true)) return;
  status_ = 1;
  // Unmounts announce nothing but a change of the mount table: watched beside the devices. A
  // change from before the watch started is not signalled, so the table is looked at once.
  auto watch = MountWatch::start(files_->root() + MachineFiles::kMountTable,
                                 [this] { mountTableChanged(); });
  checkUnmounts();
  events_->run([this](const BlockDeviceEvent& event) { handle(event); });
  watch.reset();
  running_ = false;
  status_ = 0;
}

void ExternalDiskMonitor::endMonitor() { events_->stop(); }

void ExternalDiskMonitor::stopMonitor() {
  {
    std::lock_guard guard(lock_);
    mounts_.clear();
  }
  tableChanged_.notify_all();
}

void ExternalDiskMonitor::handle(const BlockDeviceEvent& event) {
  if (event.kind == BlockDeviceEvent::Kind::Disappeared) {
    removeFromMount(event.name);
  } else if (event.mountable && !event.name.empty()) {
    addMount(event.name, event.writable, event.device);
  }
}

void ExternalDiskMonitor::addMount(const std::string& name, bool writable,
                                   const std::string& device) {
  {
    std::lock_guard guard(lock_);
    mounts_[name] = Mount{writable, device, {}};
    ++looking_;
  }
  queue_->async([this, name] {
    getMonutPath(name);
    std::lock_guard guard(lock_);
    if (--looking_ == 0) lookingDone_.notify_all();
  });
}

bool ExternalDiskMonitor::hasMountPoint(const std::string& name) const {
  std::lock_guard guard(lock_);
  return mounts_.contains(name);
}

std::optional<std::string> ExternalDiskMonitor::mountPathOf(const std::string& name,
                                                            const std::string& device) const {
  const auto text = files_->read(MachineFiles::kMountTable);
  if (!text) return std::nullopt;
  const auto table = MountTable::parse(*text);
  // By device number first: a mapped device is mounted as "/dev/mapper/luks-…", not as "dm-0".
  for (const auto& entry : table) {
    if (!device.empty() && entry.device == device && DiskVolumes::acceptsType(entry.fsType)) {
      return entry.mountPoint;
    }
  }
  for (const auto& entry : table) {
    if (DiskVolumes::acceptsType(entry.fsType) && PathName::lastComponent(entry.source) == name) {
      return entry.mountPoint;
    }
  }
  return std::nullopt;
}

void ExternalDiskMonitor::getMonutPath(const std::string& name) {
  std::string device;
  {
    std::lock_guard guard(lock_);
    const auto found = mounts_.find(name);
    if (found == mounts_.end()) return;
    device = found->second.device;
  }
  const auto deadline = std::chrono::steady_clock::now() + giveUp_;
  while (hasMountPoint(name)) {
    // Taken before the look, so that a change between the look and the wait still wakes it.
    uint64_t seen = 0;
    {
      std::lock_guard guard(lock_);
      seen = tableGeneration_;
    }
    if (const auto path = mountPathOf(name, device)) {
      findMountPath(name, *path);
      return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) {
      removeFromMount(name);
      return;
    }
    std::unique_lock guard(lock_);
    tableChanged_.wait_until(guard, std::min(deadline, now + kLongestWait),
                             [&] { return tableGeneration_ != seen || !mounts_.contains(name); });
  }
}

void ExternalDiskMonitor::findMountPath(const std::string& name, const std::string& path) {
  bool writable = false;
  std::shared_ptr<ExternalDiskDelegate> to;
  {
    std::lock_guard guard(lock_);
    const auto found = mounts_.find(name);
    if (found == mounts_.end()) return;
    writable = found->second.writable;
    found->second.path = path;
    to = delegate_;
  }
  if (to) to->mountedPath(path, writable);
}

void ExternalDiskMonitor::removeFromMount(const std::string& name) {
  std::string path;
  std::shared_ptr<ExternalDiskDelegate> to;
  {
    std::lock_guard guard(lock_);
    const auto found = mounts_.find(name);
    if (found == mounts_.end()) return;
    path = found->second.path;
    mounts_.erase(found);
    to = delegate_;
  }
  tableChanged_.notify_all();
  if (to && !path.empty()) to->unmountedPath(path);
}

void ExternalDiskMonitor::mountTableChanged() {
  {
    std::lock_guard guard(lock_);
    ++tableGeneration_;
  }
  tableChanged_.notify_all();
  checkUnmounts();
}

void ExternalDiskMonitor::checkUnmounts() {
  const auto text = files_->read(MachineFiles::kMountTable);
  if (!text) return;
  std::set<std::string> mounted;
  for (const auto& entry : MountTable::parse(*text)) mounted.insert(entry.mountPoint);
  std::vector<std::string> gone;
  std::shared_ptr<ExternalDiskDelegate> to;
  {
    std::lock_guard guard(lock_);
    for (auto it = mounts_.begin(); it != mounts_.end();) {
      if (!it->second.path.empty() && !mounted.contains(it->second.path)) {
        gone.push_back(it->second.path);
        it = mounts_.erase(it);
      } else {
        ++it;
      }
    }
    to = delegate_;
  }
  if (!to) return;
  for (const auto& path : gone) to->unmountedPath(path);
}

}  // namespace vexa
