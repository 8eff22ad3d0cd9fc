#include "status/CleanBudget.h"

#include <gtest/gtest.h>

#include <ostream>

#include <filesystem>
#include <fstream>

#include "status/MachineFiles.h"
#include "status/MemoryCleaner.h"
#include "support/TempDir.h"

namespace vexa {
namespace clean_budget_test {

constexpr uint64_t kMiB = uint64_t{1} << 20;
constexpr uint64_t kGiB = uint64_t{1} << 30;

struct BudgetCase {
  const char* name;
  uint64_t total, free, available;
  std::optional<uint64_t> headroom;
  uint64_t chunks;
};
void PrintTo(const BudgetCase& c, std::ostream* os) { *os << c.name; }

class CleanBudgetTest : public ::testing::TestWithParam<BudgetCase> {};

TEST_P(CleanBudgetTest, CountsWholeChunksWithinEveryLimit) {
  const BudgetCase& c = GetParam();
  const KernelTable meminfo = {
      {"MemTotal", c.total}, {"MemFree", c.free}, {"MemAvailable", c.available}};
  EXPECT_EQ(CleanBudget::chunks(meminfo, c.headroom), c.chunks);
}

INSTANTIATE_TEST_SUITE_P(
    Figures, CleanBudgetTest,
    ::testing::Values(
        // 1 GiB free, plenty available: four chunks.
        BudgetCase{"FreeLimits", 4 * kGiB, 1 * kGiB, 3 * kGiB, std::nullopt, 4},
        // Reserve of 256 MiB taken off MemAvailable.
        BudgetCase{"AvailableLimits", 4 * kGiB, 3 * kGiB, 1 * kGiB + 256 * kMiB, std::nullopt, 4},
        // 5 % of 32 GiB (1.6 GiB) is the reserve on a large machine.
        BudgetCase{"LargeMachineReserve", 32 * kGiB, 20 * kGiB, 2 * kGiB, std::nullopt, 1},
        BudgetCase{"AvailableUnderReserve", 4 * kGiB, 1 * kGiB, 200 * kMiB, std::nullopt, 0},
        BudgetCase{"AvailableAtReserve", 4 * kGiB, 1 * kGiB, 256 * kMiB, std::nullopt, 0},
        // A 512 MiB container with 100 MiB used: 412 − 256 MiB leaves no whole chunk.
        BudgetCase{"ContainerLimit", 4 * kGiB, 3 * kGiB, 3 * kGiB, 412 * kMiB, 0},
        BudgetCase{"ContainerRoom", 4 * kGiB, 3 * kGiB, 3 * kGiB, 1 * kGiB, 3},
        BudgetCase{"ContainerFull", 4 * kGiB, 3 * kGiB, 3 * kGiB, 0, 0},
        BudgetCase{"UnderOneChunk", 4 * kGiB, 255 * kMiB, 3 * kGiB, std::nullopt, 0}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(CleanBudgetTest, MissingKeysGiveNoChunks) {
  EXPECT_EQ(CleanBudget::chunks({{"MemTotal", kGiB}, {"MemFree", kGiB}}, std::nullopt), 0u);
  EXPECT_EQ(CleanBudget::chunks({}, std::nullopt), 0u);
}

struct PressureCase {
  const char* text;
  bool high;
};
void PrintTo(const PressureCase& c, std::ostream* os) { *os << c.text; }

class PressureTest : public ::testing::TestWithParam<PressureCase> {};

TEST_P(PressureTest, StopsAboveTenPercent) {
  EXPECT_EQ(CleanBudget::pressureTooHigh(GetParam().text), GetParam().high) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Lines, PressureTest,
    ::testing::Values(PressureCase{"some avg10=0.00 avg60=0.00 avg300=0.00 total=0\n", false},
                      PressureCase{"some avg10=10.00 avg60=0.00 avg300=0.00 total=0\n", false},
                      PressureCase{"some avg10=10.01 avg60=0.00 avg300=0.00 total=0\n", true},
                      PressureCase{"some avg10=55.30 avg60=1.00\nfull avg10=3.00\n", true},
                      PressureCase{"full avg10=90.00\n", false}, PressureCase{"", false},
                      PressureCase{"some avg10=x", false}));

std::string machine(const std::string& name) {
  return std::string(VEXA_TEST_DATA_DIR) + "/machines/" + name;
}

TEST(CleanBudgetTest, CgroupHeadroomOnFixtureMachines) {
  // v2 with a 512 MiB limit and 100 MiB in use.
  auto amd = MachineFiles::underRoot(machine("amd-desktop"));
  EXPECT_EQ(CleanBudget::cgroupHeadroom(*amd), 512 * kMiB - 100 * kMiB);
  EXPECT_EQ(CleanBudget::cgroupV2Folder(*amd), "/sys/fs/cgroup/user.slice/app.scope");
  EXPECT_EQ(CleanBudget::chunksNow(*amd), 0u);
  // v1 without a limit.
  auto vm = MachineFiles::underRoot(machine("vm-2cpu"));
  EXPECT_FALSE(CleanBudget::cgroupHeadroom(*vm));
  EXPECT_GT(CleanBudget::chunksNow(*vm), 0u);
  EXPECT_FALSE(CleanBudget::shouldStop(*vm));
  // v2 at the root: no limit files.
  EXPECT_FALSE(CleanBudget::cgroupHeadroom(*MachineFiles::underRoot(machine("intel-laptop"))));
}

// Before a cleaning fills memory, the cgroup is asked to reclaim its inactive file pages, when
// its memory.reclaim can be written (a cgroup v2 kernel of 5.19 or later).
TEST(CleanBudgetTest, ReclaimWritesTheInactiveFileBytes) {
  test::TempDir box;
  std::filesystem::copy(machine("amd-desktop"), box.path(),
                        std::filesystem::copy_options::recursive);
  EXPECT_FALSE(MemoryCleaner::reclaimInactiveFiles(box.path()));
  const std::string reclaim = box.write("sys/fs/cgroup/user.slice/app.scope/memory.reclaim", "");
  EXPECT_TRUE(MemoryCleaner::reclaimInactiveFiles(box.path()));
  std::ifstream written(reclaim);
  std::string bytes;
  written >> bytes;
  EXPECT_EQ(bytes, "20971520");
  EXPECT_FALSE(MemoryCleaner::reclaimInactiveFiles(machine("vm-2cpu")));
}

}  // namespace clean_budget_test
}  // namespace vexa
