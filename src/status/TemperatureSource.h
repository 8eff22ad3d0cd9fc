#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vexa {

class MachineFiles;

// One temperature input of a hwmon chip; unlabelled inputs are named "tempN".
struct HwmonSensor {
  std::string label;
  double celsius = 0;
  std::string path;  // its tempN_input file
};
struct HwmonChip {
  std::string name;
  std::vector<HwmonSensor> sensors;
};
struct ThermalZone {
  std::string type;
  double celsius = 0;
  std::string path;  // its temp file
};
struct CpuTemperature {
  double celsius = 0;
  std::string source;  // "coretemp/Package id 0", "thermal/x86_pkg_temp", ...
  std::string path;
};

// Picks the processor temperature in a fixed order, never at random: the Apple SMC's "TC0P";
// coretemp "Package id 0", else its hottest "Core N"; k10temp or zenpower Tdie, then Tctl; the
// x86_pkg_temp zone; zones whose type names the cpu; acpitz last (it may be a fixed value).
// Chips are matched by name, since hwmonN numbers change between boots.
std::optional<CpuTemperature> chooseCpuTemperature(const std::vector<HwmonChip>& chips,
                                                   const std::vector<ThermalZone>& zones);

// The chips of /sys/class/hwmon and the zones of /sys/class/thermal with a readable, sensible
// temperature.
std::vector<HwmonChip> readHwmonChips(const MachineFiles& files);
std::vector<ThermalZone> readThermalZones(const MachineFiles& files);

// The SMC's sp78 fixed-point bytes: both taken as signed 8-bit numbers, so that a second byte
// of 0x80 or more lowers the value (0x3C 0x80 gives 59.5).
double decodeSp78(unsigned char high, unsigned char low);

}  // namespace vexa
