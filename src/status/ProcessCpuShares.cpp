#include "status/ProcessCpuShares.h"

#include "status/ProcParsers.h"

namespace vexa {

double ProcessCpuShares::share(const PidStat& stat, double now) {
  const uint64_t ticks = stat.userTicks + stat.systemTicks;
  double busy = static_cast<double>(ticks) / ticksPerSecond_;
  double period = now - static_cast<double>(stat.startTicks) / ticksPerSecond_;
  if (const auto last = previous_.find(stat.pid); last != previous_.end() &&
                                                  last->second.startTicks == stat.startTicks &&
                                                  ticks >= last->second.ticks) {
    busy = static_cast<double>(ticks - last->second.ticks) / ticksPerSecond_;
    period = now - last->second.at;
  }
  current_[stat.pid] = Look{stat.startTicks, ticks, now};
  return period > 0 ? 100.0 * busy / period : 0.0;
}

void ProcessCpuShares::endRound() {
  previous_ = std::move(current_);
  current_.clear();
}

}  // namespace vexa
