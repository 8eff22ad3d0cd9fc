#pragma once

#include <libudev.h>
#include <unistd.h>

namespace vexa {

// A libudev monitor of one subsystem's announcements as udevd passes them on, released with its
// context. Used on one thread.
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
  // The next announcement waiting, for the caller to unref; null when there is none.
  udev_device* receive() { return udev_monitor_receive_device(monitor_); }
  // Reads every announcement waiting; true when there was one.
  bool drain() {
    bool any = false;
    while (udev_device* device = receive()) {
      udev_device_unref(device);
      any = true;
    }
    return any;
  }
  // Without udevd the monitor hears nothing: the kernel's own announcements are not passed on.
  static bool daemonRuns() { return ::access("/run/udev/control", F_OK) == 0; }

 private:
  udev* context_ = nullptr;
  udev_monitor* monitor_ = nullptr;
};

}  // namespace vexa
