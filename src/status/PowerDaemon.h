#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "status/PowerDevice.h"

namespace vexa {

// A power daemon that keeps the machine's power devices and tells when they change.
class PowerDaemon {
 public:
  virtual ~PowerDaemon() = default;

  struct Devices {
    std::vector<PowerDevice> devices;  // the daemon's order
    // The daemon's summary of every battery that powers the machine; absent when it keeps
    // none or shows no battery in it.
    std::optional<PowerDevice> display;
  };
  // The devices now; nothing when the daemon is not running or did not answer as it should.
  // Blocks for at most a few seconds.
  virtual std::optional<Devices> devices() = 0;
  // Starts calling `changed` on the calling thread's run loop when a device changes, comes or
  // goes, or the daemon starts or stops, until the object is destroyed. False when nothing can
  // be heard.
  virtual bool follow(std::function<void()> changed) = 0;

  // The daemon on the system bus ($DBUS_SYSTEM_BUS_ADDRESS when set); null without a bus.
  static std::unique_ptr<PowerDaemon> system();
};

}  // namespace vexa
