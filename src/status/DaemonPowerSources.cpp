#include "status/DaemonPowerSources.h"

#include <cmath>
#include <string>

#include "status/SysfsPowerSupplies.h"

namespace vexa {

namespace {

// The kernel's status words for the daemon's states.
std::string statusOf(uint32_t state) {
  switch (state) {
    case PowerDevice::kCharging:
      return "Charging";
    case PowerDevice::kDischarging:
    case PowerDevice::kEmpty:
      return "Discharging";
    case PowerDevice::kFullyCharged:
      return "Full";
    case PowerDevice::kPendingCharge:
    case PowerDevice::kPendingDischarge:
      return "Not charging";
    default:
      return "Unknown";
  }
}

// A figure in the kernel's micro-units; nothing for what is not a finite, sane number.
std::optional<std::string> micro(const std::optional<double>& value, double scale = 1e6) {
  if (!value || !std::isfinite(*value) || std::fabs(*value) > 1e9) return std::nullopt;
  return std::to_string(std::llround(*value * scale));
}

SysfsPowerSupplies::Supply supplyOf(const PowerDevice& device) {
  SysfsPowerSupplies::Supply supply{{"name", device.path}};
  auto put = [&](const char* name, const std::optional<std::string>& value) {
    if (value) supply.emplace(name, *value);
  };
  if (!device.powerSupply) supply.emplace("scope", "Device");
  if (device.kind == PowerDevice::Kind::LinePower) {
    supply.emplace("type", "Mains");
    if (device.online) supply.emplace("online", *device.online ? "1" : "0");
    return supply;
  }
  supply.emplace("type", "Battery");
  if (device.present) supply.emplace("present", *device.present ? "1" : "0");
  if (device.state) supply.emplace("status", statusOf(*device.state));
  put("capacity", micro(device.percentage, 1.0));
  put("energy_now", micro(device.energy));
  put("energy_full", micro(device.energyFull));
  put("energy_full_design", micro(device.energyFullDesign));
  put("power_now", micro(device.energyRate));
  put("voltage_now", micro(device.voltage));
  put("temp", micro(device.temperature, 10.0));
  if (device.chargeCycles && *device.chargeCycles >= 0) {
    supply.emplace("cycle_count", std::to_string(*device.chargeCycles));
  }
  return supply;
}

bool isPoweringBattery(const PowerDevice& device) {
  return device.kind == PowerDevice::Kind::Battery && device.powerSupply;
}

}  // namespace

DaemonPowerSources::DaemonPowerSources(std::unique_ptr<PowerDaemon> daemon,
                                       std::unique_ptr<PowerSources> fallback)
    : daemon_(std::move(daemon)), fallback_(std::move(fallback)) {}

PowerSnapshot DaemonPowerSources::read() {
  if (daemon_) {
    if (const auto devices = daemon_->devices()) return summarize(*devices);
  }
  return fallback_->read();
}

bool DaemonPowerSources::follow(std::function<void()> changed) {
  const bool daemon = daemon_ && daemon_->follow(changed);
  const bool files = fallback_->follow(std::move(changed));
  return daemon || files;
}

PowerSnapshot DaemonPowerSources::summarize(const PowerDaemon::Devices& devices) {
  std::vector<SysfsPowerSupplies::Supply> supplies;
  const PowerDevice* onlyBattery = nullptr;
  int batteries = 0;
  for (const auto& device : devices.devices) {
    if (device.kind == PowerDevice::Kind::Other) continue;
    supplies.push_back(supplyOf(device));
    if (isPoweringBattery(device)) {
      onlyBattery = &device;
      ++batteries;
    }
  }
  PowerSnapshot snapshot = SysfsPowerSupplies::summarize(supplies);
  if (batteries == 0 || snapshot.sources.empty()) return snapshot;

  const PowerDevice* timed = devices.display && isPoweringBattery(*devices.display)
                                 ? &*devices.display
                             : batteries == 1 ? onlyBattery
                                              : nullptr;
  if (timed == nullptr) return snapshot;
  auto& source = snapshot.sources.front();
  // 0 is the daemon's "still working it out": the figures' own estimate stands then.
  const bool onBattery = snapshot.timeRemaining != -2.0;
  if (onBattery && timed->timeToEmpty && *timed->timeToEmpty > 0) {
    snapshot.timeRemaining = static_cast<double>(*timed->timeToEmpty);
  }
  if (source.value("Is Charging", false) && timed->timeToFull && *timed->timeToFull > 0) {
    source["Time to Full Charge"] = *timed->timeToFull / 60;
  }
  return snapshot;
}

}  // namespace vexa
