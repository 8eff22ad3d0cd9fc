#include "status/SysfsPowerSupplies.h"

#include <array>
#include <cmath>
#include <cstdlib>

#include "status/MachineFiles.h"
#include "status/PowerSupplyChanges.h"
#include "status/ProcParsers.h"
#include "util/PathName.h"

namespace vexa {

namespace {

constexpr const char* kClassFolder = "/sys/class/power_supply";
constexpr std::array<const char*, 23> kAttributes = {"type",
                                                     "scope",
                                                     "online",
                                                     "present",
                                                     "status",
                                                     "health",
                                                     "capacity",
                                                     "energy_now",
                                                     "energy_full",
                                                     "energy_full_design",
                                                     "power_now",
                                                     "charge_now",
                                                     "charge_full",
                                                     "charge_full_design",
                                                     "current_now",
                                                     "voltage_now",
                                                     "voltage_min_design",
                                                     "cycle_count",
                                                     "temp",
                                                     "model_name",
                                                     "manufacturer",
                                                     "serial_number",
                                                     "technology"};
// A battery that would last longer than this at the present rate is not really draining: the
// rate is noise around zero, and the time is still being worked out.
constexpr double kLongestHours = 100.0;

std::optional<int64_t> number(const SysfsPowerSupplies::Supply& supply, const char* name) {
  const auto found = supply.find(name);
  if (found == supply.end()) return std::nullopt;
  return parseSigned(found->second);
}

std::string text(const SysfsPowerSupplies::Supply& supply, const char* name) {
  const auto found = supply.find(name);
  return found == supply.end() ? std::string() : found->second;
}

bool isMains(const SysfsPowerSupplies::Supply& supply) {
  const std::string type = text(supply, "type");
  return type == "Mains" || PathName::hasPrefix(type, "USB");
}

// The sum of one figure over every battery; nothing unless all of them have it.
std::optional<int64_t> total(const std::vector<const SysfsPowerSupplies::Supply*>& batteries,
                             const char* name, bool magnitude = false) {
  int64_t sum = 0;
  for (const auto* battery : batteries) {
    const auto value = number(*battery, name);
    if (!value || *value == INT64_MIN) return std::nullopt;
    const int64_t add = magnitude ? std::llabs(*value) : *value;
    if (add > 0 && sum > INT64_MAX - add) return std::nullopt;
    sum += add;
  }
  return sum;
}

struct Figures {
  // Amounts (µWh or µAh) and the rate that pairs with them (µW or µA).
  std::optional<int64_t> now, full, design, rate;
  bool energy = false;
};

Figures figuresOf(const std::vector<const SysfsPowerSupplies::Supply*>& batteries) {
  Figures energy{total(batteries, "energy_now"), total(batteries, "energy_full"),
                 total(batteries, "energy_full_design"), total(batteries, "power_now", true), true};
  if (energy.now && energy.full) return energy;
  Figures charge{total(batteries, "charge_now"), total(batteries, "charge_full"),
                 total(batteries, "charge_full_design"), total(batteries, "current_now", true),
                 false};
  if (charge.now && charge.full) return charge;
  return {};
}

// Hours the amount lasts at the rate; nothing for a rate too small to mean anything.
std::optional<double> hoursAt(int64_t amount, const std::optional<int64_t>& rate) {
  if (!rate || *rate <= 0) return std::nullopt;
  const double hours =
      static_cast<double>(std::max<int64_t>(amount, 0)) / static_cast<double>(*rate);
  if (hours > kLongestHours) return std::nullopt;
  return hours;
}

}  // namespace

SysfsPowerSupplies::SysfsPowerSupplies(std::shared_ptr<MachineFiles> files,
                                       std::unique_ptr<PowerSupplyChanges> changes)
    : files_(std::move(files)), changes_(std::move(changes)) {}

SysfsPowerSupplies::~SysfsPowerSupplies() = default;

std::vector<SysfsPowerSupplies::Supply> SysfsPowerSupplies::supplies() const {
  std::vector<Supply> found;
  for (const auto& name : files_->list(kClassFolder)) {
    const std::string folder = std::string(kClassFolder) + "/" + name;
    Supply supply{{"name", name}};
    for (const char* attribute : kAttributes) {
      if (auto value = trimmedValue(files_->read(folder + "/" + attribute))) {
        supply.emplace(attribute, std::move(*value));
      }
    }
    if (supply.contains("type")) found.push_back(std::move(supply));
  }
  return found;
}

PowerSnapshot SysfsPowerSupplies::read() { return summarize(supplies()); }

bool SysfsPowerSupplies::follow(std::function<void()> changed) {
  return changes_ && changes_->start(std::move(changed));
}

PowerSnapshot SysfsPowerSupplies::summarize(const std::vector<Supply>& supplies) {
  std::vector<const Supply*> batteries;
  bool hasMains = false;
  bool mainsOnline = false;
  for (const auto& supply : supplies) {
    if (text(supply, "scope") == "Device") continue;
    if (isMains(supply)) {
      hasMains = true;
      mainsOnline = mainsOnline || number(supply, "online").value_or(0) == 1;
    } else if (text(supply, "type") == "Battery") {
      batteries.push_back(&supply);
    }
  }
  PowerSnapshot snapshot;
  if (batteries.empty()) {
    snapshot.timeRemaining = -2.0;
    return snapshot;
  }

  bool present = false;
  bool charging = false;
  bool discharging = false;
  for (const auto* battery : batteries) {
    present = present || number(*battery, "present").value_or(1) != 0;
    const std::string status = text(*battery, "status");
    charging = charging || status == "Charging";
    discharging = discharging || status == "Discharging";
  }
  // Without a mains supply to ask, the batteries' own status tells: only discharging means
  // running on them.
  const bool onMains = hasMains ? mainsOnline : !discharging;
  const Figures figures = figuresOf(batteries);

  nlohmann::json source = {{"Is Present", present},
                           {"Power Source State", onMains ? "AC Power" : "Battery Power"},
                           {"Is Charging", charging}};
  if (figures.now && figures.full) {
    source["Current Capacity"] = *figures.now;
    source["Max Capacity"] = *figures.full;
  } else if (const auto capacity = total(batteries, "capacity")) {
    source["Current Capacity"] = *capacity / static_cast<int64_t>(batteries.size());
    source["Max Capacity"] = 100;
  }
  int64_t toFull = 0;
  if (charging && figures.now && figures.full) {
    if (const auto hours = hoursAt(*figures.full - *figures.now, figures.rate)) {
      toFull = static_cast<int64_t>(*hours * 60.0);
    }
  }
  source["Time to Full Charge"] = toFull;
  std::string health = text(*batteries.front(), "health");
  if (health.empty() || health == "Unknown") {
    health.clear();
    if (figures.full && figures.design && *figures.design > 0) {
      health = *figures.full * 5 >= *figures.design * 4 ? "Good" : "Poor";
    }
  }
  if (!health.empty()) source["BatteryHealth"] = health;
  snapshot.sources.push_back(std::move(source));

  if (onMains) {
    snapshot.timeRemaining = -2.0;
  } else if (const auto hours = figures.now ? hoursAt(*figures.now, figures.rate) : std::nullopt) {
    snapshot.timeRemaining = std::floor(*hours * 3600.0);
  } else {
    snapshot.timeRemaining = -1.0;
  }

  // Electrical figures in the battery's units: mAh, mV, mA.
  const auto voltage = number(*batteries.front(), "voltage_now");
  const auto designVoltage = number(*batteries.front(), "voltage_min_design");
  // Energy becomes charge at the design voltage (the one the capacity was rated at), else at
  // the present one; 0 when neither is known.
  const int64_t perVolt = designVoltage && *designVoltage > 0 ? *designVoltage
                          : voltage && *voltage > 0           ? *voltage
                                                              : 0;
  auto milliampHours = [&](const std::optional<int64_t>& amount) -> std::optional<int64_t> {
    if (!amount) return std::nullopt;
    if (!figures.energy) return *amount / 1000;
    if (perVolt == 0) return std::nullopt;
    return static_cast<int64_t>(static_cast<double>(*amount) / static_cast<double>(perVolt) *
                                1000.0);
  };
  std::optional<int64_t> amperage;
  if (figures.rate) {
    if (!figures.energy) {
      amperage = *figures.rate / 1000;
    } else if (voltage && *voltage > 0) {
      amperage = static_cast<int64_t>(static_cast<double>(*figures.rate) /
                                      static_cast<double>(*voltage) * 1000.0);
    }
    if (amperage && discharging) amperage = -*amperage;
  }
  nlohmann::json info = nlohmann::json::object();
  nlohmann::json properties = nlohmann::json::object();
  auto put = [](nlohmann::json& into, const char* key, const std::optional<int64_t>& value) {
    if (value) into[key] = *value;
  };
  const auto current = milliampHours(figures.now);
  const auto full = milliampHours(figures.full);
  const auto cycles = number(*batteries.front(), "cycle_count");
  const std::optional<int64_t> millivolts =
      voltage ? std::optional<int64_t>(*voltage / 1000) : std::nullopt;
  put(info, "Current", current);
  put(info, "Capacity", full);
  put(info, "Voltage", millivolts);
  put(info, "Amperage", amperage);
  put(info, "Cycle Count", cycles);
  put(properties, "CurrentCapacity", current);
  put(properties, "MaxCapacity", full);
  put(properties, "DesignCapacity", milliampHours(figures.design));
  put(properties, "CycleCount", cycles);
  put(properties, "Voltage", millivolts);
  put(properties, "Amperage", amperage);
  if (const auto temp = number(*batteries.front(), "temp");
      temp && *temp > -10000 && *temp < 10000) {
    properties["Temperature"] = *temp * 10;
  }
  snapshot.batteryInfo = nlohmann::json::array({std::move(info)});
  snapshot.batteryProperties = std::move(properties);
  return snapshot;
}

}  // namespace vexa
