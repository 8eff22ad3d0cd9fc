#include "status/TemperatureSource.h"

#include <algorithm>
#include <cstdint>

#include "status/MachineFiles.h"
#include "status/ProcParsers.h"

namespace vexa {
namespace {

const HwmonChip* chipNamed(const std::vector<HwmonChip>& chips, const std::string& name) {
  const auto found =
      std::find_if(chips.begin(), chips.end(), [&](const HwmonChip& c) { return c.name == name; });
  return found == chips.end() ? nullptr : &*found;
}

std::optional<CpuTemperature> sensorLabelled(const HwmonChip* chip, const std::string& label) {
  if (!chip) return std::nullopt;
  for (const HwmonSensor& sensor : chip->sensors) {
    if (sensor.label == label)
      return CpuTemperature{sensor.celsius, chip->name + "/" + label, sensor.path};
  }
  return std::nullopt;
}

CpuTemperature fromZone(const ThermalZone& zone) {
  return {zone.celsius, "thermal/" + zone.type, zone.path};
}

bool contains(const std::string& text, const std::string& part) {
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower.find(part) != std::string::npos;
}

}  // namespace

std::optional<CpuTemperature> chooseCpuTemperature(const std::vector<HwmonChip>& chips,
                                                   const std::vector<ThermalZone>& zones) {
  if (auto t = sensorLabelled(chipNamed(chips, "applesmc"), "TC0P")) return t;
  if (const HwmonChip* coretemp = chipNamed(chips, "coretemp")) {
    if (auto t = sensorLabelled(coretemp, "Package id 0")) return t;
    std::optional<CpuTemperature> hottest;
    for (const HwmonSensor& sensor : coretemp->sensors) {
      if (sensor.label.rfind("Core ", 0) == 0 && (!hottest || sensor.celsius > hottest->celsius)) {
        hottest = CpuTemperature{sensor.celsius, "coretemp/" + sensor.label, sensor.path};
      }
    }
    if (hottest) return hottest;
  }
  for (const char* label : {"Tdie", "Tctl"}) {
    for (const char* name : {"k10temp", "zenpower"}) {
      if (auto t = sensorLabelled(chipNamed(chips, name), label)) return t;
    }
  }
  for (const ThermalZone& zone : zones) {
    if (zone.type == "x86_pkg_temp") return fromZone(zone);
  }
  for (const ThermalZone& zone : zones) {
    if (contains(zone.type, "cpu")) return fromZone(zone);
  }
  for (const ThermalZone& zone : zones) {
    if (zone.type == "acpitz") return fromZone(zone);
  }
  return std::nullopt;
}

std::vector<HwmonChip> readHwmonChips(const MachineFiles& files) {
  std::vector<HwmonChip> chips;
  for (const std::string& entry : files.list("/sys/class/hwmon")) {
    const std::string folder = "/sys/class/hwmon/" + entry;
    const auto name = trimmedValue(files.read(folder + "/name"));
    if (!name) continue;
    HwmonChip chip{*name, {}};
    for (const std::string& file : files.list(folder)) {
      // tempN_input
      if (file.rfind("temp", 0) != 0 || file.size() <= 10 ||
          file.compare(file.size() - 6, 6, "_input") != 0) {
        continue;
      }
      const std::string stem = file.substr(0, file.size() - 6);
      std::string input = folder;
      input.append("/").append(file);
      const auto celsius = files.read(input);
      const auto value = celsius ? parseMillidegrees(*celsius) : std::nullopt;
      if (!value) continue;
      std::string labelFile = folder;
      labelFile.append("/").append(stem).append("_label");
      const auto label = trimmedValue(files.read(labelFile));
      chip.sensors.push_back({label.value_or(stem), *value, std::move(input)});
    }
    chips.push_back(std::move(chip));
  }
  return chips;
}

std::vector<ThermalZone> readThermalZones(const MachineFiles& files) {
  std::vector<ThermalZone> zones;
  for (const std::string& entry : files.list("/sys/class/thermal")) {
    if (entry.rfind("thermal_zone", 0) != 0) continue;
    const std::string folder = "/sys/class/thermal/" + entry;
    const auto type = trimmedValue(files.read(folder + "/type"));
    const auto text = files.read(folder + "/temp");
    const auto value = text ? parseMillidegrees(*text) : std::nullopt;
    if (type && value) zones.push_back({*type, *value, folder + "/temp"});
  }
  return zones;
}

double decodeSp78(unsigned char high, unsigned char low) {
  const int value = static_cast<int8_t>(high) * 256 + static_cast<int8_t>(low);
  return static_cast<double>(value >> 2) * 0.015625;
}

}  // namespace vexa
