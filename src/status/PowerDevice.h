#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vexa {

// One device of a power daemon, in the daemon's units. A figure the daemon did not give, or
// gave in a type it should not have, is left empty.
struct PowerDevice {
  enum class Kind { Other, LinePower, Battery };
  // The daemon's device states.
  enum State : uint32_t {
    kUnknown = 0,
    kCharging = 1,
    kDischarging = 2,
    kEmpty = 3,
    kFullyCharged = 4,
    kPendingCharge = 5,
    kPendingDischarge = 6,
  };

  std::string path;  // the daemon's name for it
  Kind kind = Kind::Other;
  bool powerSupply = true;     // false: it powers only itself (a mouse, a headset)
  std::optional<bool> online;  // line power
  std::optional<bool> present;
  std::optional<uint32_t> state;
  std::optional<double> percentage;  // 0-100
  std::optional<double> energy;      // Wh
  std::optional<double> energyFull;
  std::optional<double> energyFullDesign;
  std::optional<double> energyRate;    // W
  std::optional<double> voltage;       // V
  std::optional<double> temperature;   // °C
  std::optional<int64_t> timeToEmpty;  // seconds, 0 while unknown
  std::optional<int64_t> timeToFull;
  std::optional<int64_t> chargeCycles;  // negative while unknown
};

}  // namespace vexa
