#pragma once

#include <functional>
#include <memory>

namespace vexa {

// Tells when the machine's power supplies change: a charger plugged in or pulled out, a battery
// whose state or level moved, a supply that came or went.
class PowerSupplyChanges {
 public:
  virtual ~PowerSupplyChanges() = default;
  // Starts calling `changed` on the calling thread's run loop, once for each burst of
  // announcements, until the object is destroyed. False when nothing can be heard.
  virtual bool start(std::function<void()> changed) = 0;

  // udev's announcements for the "power_supply" class of the running machine.
  static std::unique_ptr<PowerSupplyChanges> system();
};

}  // namespace vexa
