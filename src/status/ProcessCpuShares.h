#pragma once

#include <cstdint>
#include <map>

namespace vexa {

struct PidStat;

// Processor shares of processes between two looks, as top computes them; the first look at a
// process gives its share since it started, as ps does. A pid reused by a new process (another
// start time) starts over.
class ProcessCpuShares {
 public:
  explicit ProcessCpuShares(double ticksPerSecond) : ticksPerSecond_(ticksPerSecond) {}

  // The percent of one processor `stat` used since the last look; `now` is seconds since boot.
  // Remembers this look for the next round.
  double share(const PidStat& stat, double now);
  // Ends a round: processes not looked at in it are forgotten, so the table cannot grow.
  void endRound();

 private:
  struct Look {
    uint64_t startTicks = 0;
    uint64_t ticks = 0;
    double at = 0;
  };
  double ticksPerSecond_;
  std::map<int32_t, Look> previous_;
  std::map<int32_t, Look> current_;
};

}  // namespace vexa
