#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "status/ProcParsers.h"

namespace vexa {

// The tick differences of one core between two readings. "user" includes nice; "system"
// includes irq, softirq and steal; "idle" includes iowait. total is never 0.
struct CoreUsage {
  int core = 0;
  int64_t system = 0;
  int64_t user = 0;
  int64_t idle = 0;
  int64_t total = 1;
};

// Shares of a core's (or all cores') time, each difference taken as an unsigned 64-bit number
// before dividing, as the host's figures expect.
struct UsageShares {
  float system = 0;
  float user = 0;
  float idle = 0;
};

// Turns successive /proc/stat readings into per-core differences. Cores are keyed by their
// number: one that goes offline is dropped, and one that comes (back) online starts from its
// own counters, so its first difference is empty.
//
// The system difference wraps as an unsigned number; user, nice and idle give a negative
// difference when their counter went backwards. idle + iowait is kept from going backwards,
// since iowait on its own may.
class CpuUsage {
 public:
  // Remembers a reading without reporting it.
  void prime(const std::vector<CoreTicks>& now);
  // The differences from the previous reading, in the order of `now`; remembers `now`.
  std::vector<CoreUsage> update(const std::vector<CoreTicks>& now);

  static UsageShares shares(const CoreUsage& usage);
  // The shares of the sums over all cores.
  static UsageShares overall(const std::vector<CoreUsage>& cores);

 private:
  struct Prior {
    uint64_t user = 0, nice = 0, system = 0, idle = 0;
  };
  static Prior fold(const CoreTicks& ticks);
  std::map<int, Prior> prior_;
};

}  // namespace vexa
