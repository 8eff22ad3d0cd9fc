#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace vexa {

// The process-wide side of the cleaning engine: which machine the budget is read from, where
// the child program is, and the stop flag the child's passes watch.
class MemoryCleaner {
 public:
  // The root the budget and the child read /proc and /sys under ("/" unless a test or
  // vexa-status --sysroot says otherwise).
  static void setMachineRoot(const std::string& root);
  static std::string machineRoot();
  // The vexa-memclean program: $VEXA_MEMCLEAN when set, else the installed one.
  static std::string childPath();

  // Runs one cleaning against `root` as clear_memory() describes, calling `completion` (if
  // any) a second after the child is gone.
  static void clean(const std::string& root, const std::function<void()>& completion,
                    bool oldSystem, int32_t* flag);
  // Writes the cgroup's inactive file bytes to its v2 memory.reclaim, when that is writable.
  static bool reclaimInactiveFiles(const std::string& root);
};

}  // namespace vexa
