#pragma once

#include <memory>
#include <set>
#include <string>

#include "vexa/status/BatteryStatus.h"
#include "vexa/status/CPUStatus.h"
#include "vexa/status/DiskStatus.h"
#include "vexa/status/MemoryStatus.h"
#include "vexa/status/NetworkStatus.h"
#include "vexa/status/ProcessStatus.h"

namespace vexa::tools {

// The samplers vexa-status runs, made on the main thread so that they sample on its loop.
// Each is null when not asked for or when the machine under `root` has nothing for it (the
// battery sampler also on a machine without a battery).
struct StatusSamplers {
  std::string root = "/";
  std::shared_ptr<MemoryStatus> memory;
  std::shared_ptr<CPUStatus> cpu;
  std::shared_ptr<DiskStatus> disk;
  std::shared_ptr<BatteryStatus> battery;
  std::shared_ptr<NetworkStatus> network;
  std::shared_ptr<ProcessStatus> process;
  bool system = false;
  bool clipboard = false;

  static StatusSamplers create(const std::string& root, const std::set<std::string>& only);
  // Every sampler samples every `seconds` from now on.
  void setFreshInterval(int seconds) const;
};

}  // namespace vexa::tools
