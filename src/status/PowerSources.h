#pragma once

#include <functional>
#include <optional>

#include <nlohmann/json.hpp>

namespace vexa {

// What the power sources say at one moment, in the shapes BatteryStatus works with.
struct PowerSnapshot {
  // Seconds of battery left; -1 while unknown (still calculating), -2 on mains power.
  double timeRemaining = -1.0;
  // One description per source: "Is Present", "Current Capacity", "Max Capacity", "Power Source
  // State" ("AC Power"/"Battery Power"), "Is Charging", "Time to Full Charge" (minutes, 0 when
  // unknown), "BatteryHealth".
  nlohmann::json sources = nlohmann::json::array();
  // Battery information: an array of one dictionary ("Current", "Capacity" in mAh, "Voltage"
  // in mV, "Amperage" in mA, negative while discharging, "Cycle Count"); none without a
  // battery.
  std::optional<nlohmann::json> batteryInfo;
  // The battery's own figures: "CurrentCapacity", "MaxCapacity", "DesignCapacity" (mAh),
  // "CycleCount", "Voltage" (mV), "Amperage" (mA), "Temperature" (hundredths of a degree C).
  nlohmann::json batteryProperties = nlohmann::json::object();

  bool operator==(const PowerSnapshot&) const = default;
};

// Where BatteryStatus reads the power sources from.
class PowerSources {
 public:
  virtual ~PowerSources() = default;
  // The sources now. Never throws; missing figures are left out.
  virtual PowerSnapshot read() = 0;
  // Starts calling `changed` on the calling thread's run loop when the sources announce that
  // they changed, until the object is destroyed. False when they announce nothing: then only
  // reading again tells.
  virtual bool follow(std::function<void()> changed) = 0;
};

}  // namespace vexa
