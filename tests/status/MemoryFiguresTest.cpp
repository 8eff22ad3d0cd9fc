#include "status/MemoryFigures.h"

#include <gtest/gtest.h>

#include <ostream>

namespace vexa {
namespace memory_figures_test {

constexpr uint64_t kMiB = 1024 * 1024;

KernelTable meminfo(uint64_t total, uint64_t free, uint64_t active, uint64_t inactive) {
  return {{"MemTotal", total}, {"MemFree", free}, {"Active", active}, {"Inactive", inactive}};
}

TEST(MemorySampleTest, WiredIsTheRestOfTheTotalOrNothing) {
  KernelTable table = meminfo(1000 * kMiB, 200 * kMiB, 300 * kMiB, 100 * kMiB);
  table["Zswap"] = 50 * kMiB;
  table["Zswapped"] = 150 * kMiB;
  const auto sample = MemorySample::from(table, {{400 * kMiB, 100 * kMiB}});
  ASSERT_TRUE(sample);
  EXPECT_EQ(sample->compressed, 150 * kMiB);
  EXPECT_EQ(sample->uncompressed, 550 * kMiB);
  EXPECT_EQ(sample->wired, 250 * kMiB);
  const nlohmann::json dict = sample->dictionary();
  EXPECT_EQ(dict["memory_total"], 1000 * kMiB);
  EXPECT_EQ(dict["memory_free"], 300 * kMiB);
  EXPECT_EQ(dict["memory_used"], 700 * kMiB);
  EXPECT_EQ(dict["memory_freepage"], 200 * kMiB);
  // Compressed memory is in "memory_used" but not in the used fraction.
  EXPECT_DOUBLE_EQ(sample->usedFraction(), 0.55);
  // Free, active and inactive past the total: no wired memory, not a wrapped count.
  EXPECT_EQ(MemorySample::from(meminfo(100, 80, 30, 10), {})->wired, 0u);
}

TEST(MemorySampleTest, MissingKeysGiveNoSample) {
  for (const char* missing : {"MemTotal", "MemFree", "Active", "Inactive"}) {
    KernelTable table = meminfo(100, 10, 10, 10);
    table.erase(missing);
    EXPECT_FALSE(MemorySample::from(table, {})) << missing;
  }
  EXPECT_DOUBLE_EQ(MemorySample::from(meminfo(0, 0, 0, 0), {})->usedFraction(), 0.0);
}

struct PagingCase {
  const char* name;
  uint64_t firstIn, secondIn;
  uint64_t firstDelta, secondDelta;
};
void PrintTo(const PagingCase& c, std::ostream* os) { *os << c.name; }

class PagingDeltasTest : public ::testing::TestWithParam<PagingCase> {};

TEST_P(PagingDeltasTest, ReportsChangesInPages) {
  PagingDeltas deltas;
  const auto first = deltas.dictionary({{"pgpgin", GetParam().firstIn}}, 4096);
  const auto second = deltas.dictionary({{"pgpgin", GetParam().secondIn}}, 4096);
  EXPECT_EQ(first["vm_deltapageins"], GetParam().firstDelta);
  EXPECT_EQ(second["vm_deltapageins"], GetParam().secondDelta);
  EXPECT_EQ(second["vm_pageins"], GetParam().secondIn / 4);
}

INSTANTIATE_TEST_SUITE_P(Counters, PagingDeltasTest,
                         ::testing::Values(PagingCase{"Growing", 400, 800, 100, 100},
                                           PagingCase{"Frozen", 400, 400, 100, 0},
                                           PagingCase{"Backwards", 800, 400, 200, 100},
                                           PagingCase{"Zero", 0, 0, 0, 0}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(PagingDeltasTest, MapsTheKernelCountersAndZeroesTheRest) {
  PagingDeltas deltas;
  const auto vm = deltas.dictionary(
      {{"pgpgout", 8}, {"pgfault", 77}, {"zswpin", 3}, {"zswpout", 5}, {"pswpin", 9}}, 4096);
  EXPECT_EQ(vm["vm_pageouts"], 2u);
  EXPECT_EQ(vm["vm_faults"], 77u);
  EXPECT_EQ(vm["vm_decompressions"], 3u);
  EXPECT_EQ(vm["vm_compressions"], 5u);
  for (const char* key : {"vm_hits", "vm_lookups", "vm_cowfaults", "vm_purges", "vm_purgeablecount",
                          "vm_speculativecount"}) {
    EXPECT_EQ(vm[key], 0u) << key;
  }
  EXPECT_EQ(vm.size(), 13u);
}

TEST(SwapDictionaryTest, FirstEntryNamesThePathAndPeakIsKept) {
  uint32_t peak = 3;
  const auto dict = swapDictionary(
      {{"/var/swap/swapfile1", "file", 1024, 512}, {"/dev/zram0", "partition", 2048, 0}}, false,
      peak);
  EXPECT_EQ(dict["swap_path"], "/var/swap");
  EXPECT_EQ(dict["swap_prefix"], "swapfile1");
  EXPECT_EQ(dict["swap_count"], 2u);
  EXPECT_EQ(dict["swap_countpeak"], 3u);
  EXPECT_EQ(dict["swap_size"], 3072u);
  EXPECT_EQ(dict["swap_used"], 512u);
  EXPECT_EQ(dict["swap_encrypted"], false);

  peak = 0;
  const auto none = swapDictionary({}, true, peak);
  EXPECT_EQ(none["swap_path"], "/");
  EXPECT_EQ(none["swap_prefix"], "swapfile");
  EXPECT_EQ(none["swap_encrypted"], false);
  EXPECT_EQ(SwapLocation::of({{"/swapfile", "file", 1, 0}}).path, "/");
}

}  // namespace memory_figures_test
}  // namespace vexa
