// Power-supply changes as udev announces them. The kernel announces a supply's "change" when
// its state moves (a charger plugged in, a battery starting to charge or reaching a level its
// driver reports), and udevd passes the announcement on once it has handled it.
#include <libudev.h>
#include <unistd.h>

#include <atomic>

#include "status/PowerSupplyChanges.h"
#include "util/FdWatch.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace {

// A libudev monitor, released with its context.
class UdevMonitor {
 public:
  UdevMonitor() : context_(udev_new()) {
    if (context_) monitor_ = udev_monitor_new_from_netlink(context_, "udev");
  }
  ~UdevMonitor() {
    if (monitor_) udev_monitor_unref(monitor_);
    if (context_) udev_unref(context_);
  }
  UdevMonitor(const UdevMonitor&) = delete;
  UdevMonitor& operator=(const UdevMonitor&) = delete;

  // Listening to `subsystem` only; false when the monitor cannot listen.
  bool listen(const char* subsystem) {
    return monitor_ &&
           udev_monitor_filter_add_match_subsystem_devtype(monitor_, subsystem, nullptr) >= 0 &&
           udev_monitor_enable_receiving(monitor_) >= 0;
  }
  int fd() const { return udev_monitor_get_fd(monitor_); }
  // Reads every announcement waiting; true when there was one.
  bool drain() {
    bool any = false;
    while (udev_device* device = udev_monitor_receive_device(monitor_)) {
      udev_device_unref(device);
      any = true;
    }
    return any;
  }

 private:
  udev* context_ = nullptr;
  udev_monitor* monitor_ = nullptr;
};

class UdevPowerSupplyChanges final : public PowerSupplyChanges {
 public:
  bool start(std::function<void()> changed) override {
    auto monitor = std::make_shared<UdevMonitor>();
    if (!monitor->listen("power_supply")) {
      SystemLog::log("cannot listen to udev: power supply changes are found by reading again");
      return false;
    }
    static std::atomic<bool> logged{false};
    if (::access("/run/udev/control", F_OK) != 0 && !logged.exchange(true)) {
      SystemLog::log("no udev daemon runs: power supply changes are found by reading again");
    }
    const int fd = monitor->fd();
    watch_ = FdWatch::start(RunLoop::current(), fd,
                            [monitor = std::move(monitor), changed = std::move(changed)] {
                              if (monitor->drain()) changed();
                            });
    return watch_ != nullptr;
  }

 private:
  std::unique_ptr<FdWatch> watch_;
};

}  // namespace

std::unique_ptr<PowerSupplyChanges> PowerSupplyChanges::system() {
  return std::make_unique<UdevPowerSupplyChanges>();
}

}  // namespace vexa
