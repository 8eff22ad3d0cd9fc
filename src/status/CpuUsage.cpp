#include "status/CpuUsage.h"

namespace vexa {
namespace {

// A counter that went backwards gives a negative difference.
int64_t signedDifference(uint64_t now, uint64_t before) {
  return static_cast<int64_t>(now - before);
}

float share(int64_t part, int64_t total) {
  return static_cast<float>(static_cast<uint64_t>(part)) /
         static_cast<float>(static_cast<uint64_t>(total));
}

}  // namespace

CpuUsage::Prior CpuUsage::fold(const CoreTicks& ticks) {
  return {ticks.user, ticks.nice, ticks.system + ticks.irq + ticks.softirq + ticks.steal,
          ticks.idle + ticks.iowait};
}

void CpuUsage::prime(const std::vector<CoreTicks>& now) {
  prior_.clear();
  for (const CoreTicks& ticks : now) prior_[ticks.index] = fold(ticks);
}

std::vector<CoreUsage> CpuUsage::update(const std::vector<CoreTicks>& now) {
  std::vector<CoreUsage> usage;
  std::map<int, Prior> next;
  for (const CoreTicks& ticks : now) {
    Prior current = fold(ticks);
    const auto found = prior_.find(ticks.index);
    const Prior before = found == prior_.end() ? current : found->second;
    if (current.idle < before.idle) current.idle = before.idle;
    CoreUsage core;
    core.core = ticks.index;
    // The system difference wraps; the others may be negative.
    core.system = static_cast<int64_t>(current.system - before.system);
    core.user =
        signedDifference(current.user, before.user) + signedDifference(current.nice, before.nice);
    core.idle = signedDifference(current.idle, before.idle);
    const int64_t total =
        static_cast<int64_t>(static_cast<uint64_t>(core.user) + static_cast<uint64_t>(core.system) +
                             static_cast<uint64_t>(core.idle));
    core.total = total == 0 ? 1 : total;
    usage.push_back(core);
    next[ticks.index] = current;
  }
  prior_ = std::move(next);
  return usage;
}

UsageShares CpuUsage::shares(const CoreUsage& usage) {
  return {share(usage.system, usage.total), share(usage.user, usage.total),
          share(usage.idle, usage.total)};
}

UsageShares CpuUsage::overall(const std::vector<CoreUsage>& cores) {
  CoreUsage sum;
  sum.total = 0;
  for (const CoreUsage& core : cores) {
    sum.system = static_cast<int64_t>(static_cast<uint64_t>(sum.system) +
                                      static_cast<uint64_t>(core.system));
    sum.user =
        static_cast<int64_t>(static_cast<uint64_t>(sum.user) + static_cast<uint64_t>(core.user));
    sum.idle =
        static_cast<int64_t>(static_cast<uint64_t>(sum.idle) + static_cast<uint64_t>(core.idle));
    sum.total =
        static_cast<int64_t>(static_cast<uint64_t>(sum.total) + static_cast<uint64_t>(core.total));
  }
  if (sum.total == 0) sum.total = 1;
  return shares(sum);
}

}  // namespace vexa
