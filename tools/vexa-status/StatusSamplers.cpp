#include "StatusSamplers.h"

#include <cstdio>

namespace vexa::tools {

StatusSamplers StatusSamplers::create(const std::string& root, const std::set<std::string>& only) {
  StatusSamplers samplers;
  samplers.root = root;
  if (only.contains("memory")) {
    samplers.memory = MemoryStatus::create(root);
    if (!samplers.memory) {
      std::fprintf(stderr, "vexa-status: no memory figures under %s\n", root.c_str());
    }
  }
  if (only.contains("cpu")) {
    samplers.cpu = CPUStatus::create(root);
    if (!samplers.cpu) {
      std::fprintf(stderr, "vexa-status: no processor figures under %s\n", root.c_str());
    }
  }
  if (only.contains("disk")) samplers.disk = DiskStatus::create(root);
  if (only.contains("battery")) {
    samplers.battery = BatteryStatus::create(root);
    if (!samplers.battery->isHasBattery()) samplers.battery.reset();
  }
  if (only.contains("network")) samplers.network = NetworkStatus::create(root);
  if (only.contains("process")) samplers.process = ProcessStatus::create(root);
  samplers.system = only.contains("system");
  samplers.clipboard = only.contains("clipboard");
  return samplers;
}

void StatusSamplers::setFreshInterval(int seconds) const {
  // The battery checks its sources on its own clock and reports changes only.
  if (memory) memory->setFreshInterval(seconds);
  if (cpu) cpu->setFreshInterval(seconds);
  if (disk) disk->setFreshInterval(seconds);
  if (network) network->setFreshInterval(seconds);
  if (process) process->setFreshInterval(seconds);
}

}  // namespace vexa::tools
