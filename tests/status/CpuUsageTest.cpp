#include "status/CpuUsage.h"

#include <gtest/gtest.h>

#include <ostream>

namespace vexa {
namespace cpu_usage_test {

CoreTicks ticks(int index, uint64_t user, uint64_t nice, uint64_t system, uint64_t idle,
                uint64_t iowait = 0, uint64_t irq = 0, uint64_t softirq = 0, uint64_t steal = 0) {
  return {index, user, nice, system, idle, iowait, irq, softirq, steal};
}

struct DeltaCase {
  const char* name;
  CoreTicks before;
  CoreTicks after;
  int64_t system, user, idle, total;
};
void PrintTo(const DeltaCase& c, std::ostream* os) { *os << c.name; }

class CpuDeltaTest : public ::testing::TestWithParam<DeltaCase> {};

TEST_P(CpuDeltaTest, FollowsTheCounterRules) {
  CpuUsage usage;
  usage.prime({GetParam().before});
  const auto cores = usage.update({GetParam().after});
  ASSERT_EQ(cores.size(), 1u);
  EXPECT_EQ(cores[0].system, GetParam().system);
  EXPECT_EQ(cores[0].user, GetParam().user);
  EXPECT_EQ(cores[0].idle, GetParam().idle);
  EXPECT_EQ(cores[0].total, GetParam().total);
}

constexpr uint64_t kTop = UINT64_MAX;

INSTANTIATE_TEST_SUITE_P(
    Counters, CpuDeltaTest,
    ::testing::Values(
        DeltaCase{"Plain", ticks(0, 100, 10, 50, 800), ticks(0, 130, 20, 60, 900), 10, 40, 100,
                  150},
        DeltaCase{"Frozen", ticks(0, 100, 10, 50, 800), ticks(0, 100, 10, 50, 800), 0, 0, 0, 1},
        DeltaCase{"SystemFoldsIrqSoftirqSteal", ticks(0, 0, 0, 10, 0, 0, 1, 1, 1),
                  ticks(0, 0, 0, 20, 0, 0, 2, 3, 4), 16, 0, 0, 16},
        DeltaCase{"IdleFoldsIowait", ticks(0, 0, 0, 0, 100, 10), ticks(0, 0, 0, 0, 150, 20), 0, 0,
                  60, 60},
        DeltaCase{"IowaitBackwardsKeepsIdle", ticks(0, 0, 0, 0, 100, 50),
                  ticks(0, 0, 0, 0, 120, 10), 0, 0, 0, 1},
        DeltaCase{"UserBackwardsIsNegative", ticks(0, 100, 0, 0, 0), ticks(0, 90, 0, 10, 0), 10,
                  -10, 0, 1},
        DeltaCase{"SystemBackwardsWraps", ticks(0, 0, 0, 100, 0), ticks(0, 0, 0, 90, 10), -10, 0,
                  10, 1},
        DeltaCase{"NearTheTop", ticks(0, kTop - 5, 0, 0, 0), ticks(0, kTop, 0, 0, 5), 0, 5, 5, 10}),
    [](const auto& row) { return std::string(row.param.name); });

// A frozen core's shares are all 0; the overall shares sum the cores' ticks.
TEST(CpuUsageTest, SharesOfOneCoreAndOfAll) {
  const UsageShares frozen = CpuUsage::shares({0, 0, 0, 0, 1});
  EXPECT_EQ(frozen.system + frozen.user + frozen.idle, 0.0F);
  const UsageShares all = CpuUsage::overall({{0, 10, 30, 60, 100}, {1, 0, 0, 100, 100}});
  EXPECT_FLOAT_EQ(all.system, 0.05F);
  EXPECT_FLOAT_EQ(all.user, 0.15F);
  EXPECT_FLOAT_EQ(all.idle, 0.8F);
  EXPECT_EQ(CpuUsage::overall({}).idle, 0.0F);
}

}  // namespace cpu_usage_test
}  // namespace vexa
