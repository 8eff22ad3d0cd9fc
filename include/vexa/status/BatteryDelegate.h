#pragma once

#include <string>

#include "vexa/Export.h"

namespace vexa {

// Hears from BatteryStatus on the thread whose run loop follows the power sources. Every
// operation is optional.
class VEXA_EXPORT BatteryDelegate {
 public:
  virtual ~BatteryDelegate() = default;
  // On battery while the remaining time is still being worked out: the charge in percent.
  virtual void batteryCalculating(double percent) { (void)percent; }
  // On battery: the remaining time as "h:mm".
  virtual void batteryWithRemaining(const std::string& remaining) { (void)remaining; }
  // The charge level crossed a reporting threshold: "20%".
  virtual void batteryRemainingWithLeft(const std::string& left) { (void)left; }
  // On mains power and not charging.
  virtual void batteryCharged() {}
  // The battery has just become full.
  virtual void charged() {}
  // Charging, time to full not known yet.
  virtual void batteryChargingCalculating() {}
  // Charging: the time to full as "h:mm".
  virtual void batteryChargingWithRemaining(const std::string& remaining) { (void)remaining; }
};

}  // namespace vexa
