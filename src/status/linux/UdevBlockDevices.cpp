#include <libudev.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "status/BlockDeviceEvents.h"
#include "status/linux/UdevMonitor.h"
#include "util/UniqueFd.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace {

bool isReadOnly(udev_device* device) {
  const char* ro = device ? udev_device_get_sysattr_value(device, "ro") : nullptr;
  return ro != nullptr && std::strcmp(ro, "0") != 0;
}

BlockDeviceEvent eventOf(udev_device* device, BlockDeviceEvent::Kind kind) {
  BlockDeviceEvent event;
  event.kind = kind;
  const char* name = udev_device_get_sysname(device);
  event.name = name ? name : "";
  const dev_t number = udev_device_get_devnum(device);
  event.device = std::to_string(major(number)) + ":" + std::to_string(minor(number));
  const char* usage = udev_device_get_property_value(device, "ID_FS_USAGE");
  event.mountable = usage != nullptr && std::strcmp(usage, "filesystem") == 0;
  // A partition is writable only when it and the whole disk it is on are not read-only.
  udev_device* disk = udev_device_get_parent_with_subsystem_devtype(device, "block", "disk");
  event.writable = !isReadOnly(device) && !isReadOnly(disk);
  return event;
}

// udev's announcements of block devices, as udevd sends them once it has probed the device
// (so ID_FS_USAGE is known). Without udevd nothing arrives; that is logged once.
class UdevBlockDevices final : public BlockDeviceEvents {
 public:
  UdevBlockDevices() : stop_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

  bool run(const std::function<void(const BlockDeviceEvent&)>& handle) override {
    UdevMonitor monitor;
    if (!stop_ || !monitor.listen("block")) return false;
    static std::atomic<bool> logged{false};
    if (!UdevMonitor::daemonRuns() && !logged.exchange(true)) {
      SystemLog::log("no udev daemon runs: disks that appear are not reported");
    }
    pollfd watched[2] = {{monitor.fd(), POLLIN, 0}, {stop_.get(), POLLIN, 0}};
    while (!stopped_) {
      if (::poll(watched, 2, -1) < 0) {
        if (errno == EINTR) continue;
        break;
      }
      if ((watched[1].revents & POLLIN) != 0) break;
      if ((watched[0].revents & POLLIN) == 0) continue;
      udev_device* device = monitor.receive();
      if (device == nullptr) continue;
      const char* action = udev_device_get_action(device);
      if (action != nullptr && std::strcmp(action, "add") == 0) {
        handle(eventOf(device, BlockDeviceEvent::Kind::Appeared));
      } else if (action != nullptr && std::strcmp(action, "remove") == 0) {
        handle(eventOf(device, BlockDeviceEvent::Kind::Disappeared));
      }
      udev_device_unref(device);
    }
    return true;
  }

  void stop() override {
    stopped_ = true;
    const uint64_t one = 1;
    if (stop_) (void)!::write(stop_.get(), &one, sizeof one);
  }

 private:
  UniqueFd stop_;
  std::atomic<bool> stopped_{false};
};

}  // namespace

std::unique_ptr<BlockDeviceEvents> BlockDeviceEvents::system() {
  return std::make_unique<UdevBlockDevices>();
}

}  // namespace vexa
