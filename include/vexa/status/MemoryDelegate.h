#pragma once

#include <optional>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"

namespace vexa {

// Hears from MemoryStatus. Both operations are optional.
class VEXA_EXPORT MemoryDelegate {
 public:
  virtual ~MemoryDelegate() = default;
  // One sample: the memory dictionary (bytes), the virtual-memory dictionary (counters) and,
  // on the first sample only, the swap dictionary. Sent on the sampling timer's thread.
  virtual void updateMemoryStatus(const nlohmann::json& memory, const nlohmann::json& vm,
                                  const std::optional<nlohmann::json>& swap) {
    (void)memory;
    (void)vm;
    (void)swap;
  }
  // A cleaning started by clearMemory() has ended. Sent on a worker thread.
  virtual void clearMemoryCompleted() {}
};

}  // namespace vexa
