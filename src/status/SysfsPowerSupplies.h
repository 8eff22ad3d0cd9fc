#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "status/PowerSources.h"
#include "status/PowerSupplyChanges.h"

namespace vexa {

class MachineFiles;

// The power sources as the kernel's power-supply class shows them under
// /sys/class/power_supply, read through a root folder. Changes are heard through `changes`
// when given (a captured tree has none: it is only read again).
class SysfsPowerSupplies final : public PowerSources {
 public:
  // One supply: its attribute files by name, values without the trailing new line.
  using Supply = std::map<std::string, std::string>;

  explicit SysfsPowerSupplies(std::shared_ptr<MachineFiles> files,
                              std::unique_ptr<PowerSupplyChanges> changes = nullptr);
  ~SysfsPowerSupplies() override;
  SysfsPowerSupplies(const SysfsPowerSupplies&) = delete;
  SysfsPowerSupplies& operator=(const SysfsPowerSupplies&) = delete;
  PowerSnapshot read() override;
  bool follow(std::function<void()> changed) override;

  // The supplies under the root, in name order, each with a "name" entry for its folder.
  std::vector<Supply> supplies() const;

  // The snapshot of a set of supplies. Devices powered on their own (scope "Device": mice,
  // keyboards) are left out, and all system batteries make one source. Energy figures (µWh)
  // pair only with power_now (µW) and charge figures (µAh) only with current_now (µA); a
  // battery without either pair reports its capacity percentage. A rate so small that the
  // battery would last over 100 hours reads as still calculating (-1).
  static PowerSnapshot summarize(const std::vector<Supply>& supplies);

 private:
  std::shared_ptr<MachineFiles> files_;
  std::unique_ptr<PowerSupplyChanges> changes_;
};

}  // namespace vexa
