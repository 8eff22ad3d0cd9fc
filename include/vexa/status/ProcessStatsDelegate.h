#pragma once

#include <optional>
#include <vector>

#include "vexa/Export.h"
#include "vexa/status/ProcessInfo.h"
#include "vexa/status/ProcessInfoEx.h"

namespace vexa {

// Hears from the process samplers. Every operation is optional.
class VEXA_EXPORT ProcessStatsDelegate {
 public:
  virtual ~ProcessStatsDelegate() = default;
  // ProcessStatus's records, in no set order, on the sampling timer's thread; nothing when no
  // application is running.
  virtual void updateProcessStaus(const std::optional<std::vector<ProcessInfo>>& infos) {
    (void)infos;
  }
  // ProcessStatusEx's records, in no set order, on the "command.top.queue" queue.
  virtual void updateProcessStaus(const std::vector<ProcessInfoEx>& infos) { (void)infos; }
};

}  // namespace vexa
