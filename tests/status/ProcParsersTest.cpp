#include "status/ProcParsers.h"

#include <gtest/gtest.h>

#include <ostream>

namespace vexa {
namespace proc_parsers_test {

struct MeminfoCase {
  const char* name;
  const char* text;
  const char* key;
  std::optional<uint64_t> bytes;
};
void PrintTo(const MeminfoCase& c, std::ostream* os) { *os << c.name; }

class MeminfoTest : public ::testing::TestWithParam<MeminfoCase> {};

TEST_P(MeminfoTest, ReadsOneKey) {
  const KernelTable table = parseMeminfo(GetParam().text);
  const auto found = table.find(GetParam().key);
  if (!GetParam().bytes) {
    EXPECT_EQ(found, table.end());
  } else {
    ASSERT_NE(found, table.end());
    EXPECT_EQ(found->second, *GetParam().bytes);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Lines, MeminfoTest,
    ::testing::Values(
        MeminfoCase{"Kilobytes", "MemTotal:       24683620 kB\n", "MemTotal", 24683620ULL * 1024},
        MeminfoCase{"NoUnit", "HugePages_Total:       7\n", "HugePages_Total", 7},
        MeminfoCase{"NoNewLine", "MemFree: 10 kB", "MemFree", 10240},
        MeminfoCase{"Truncated", "MemTotal: 100 kB\nMemFr", "MemFr", std::nullopt},
        MeminfoCase{"TruncatedKeepsEarlier", "MemTotal: 100 kB\nMemFr", "MemTotal", 102400},
        MeminfoCase{"NonNumeric", "MemFree: lots kB\n", "MemFree", std::nullopt},
        MeminfoCase{"OtherUnit", "MemFree: 10 MB\n", "MemFree", std::nullopt},
        MeminfoCase{"Negative", "MemFree: -10 kB\n", "MemFree", std::nullopt},
        MeminfoCase{"OverflowsInBytes", "MemFree: 18014398509481984 kB\n", "MemFree", std::nullopt},
        MeminfoCase{"LargestThatFits", "MemFree: 18014398509481983 kB\n", "MemFree",
                    18014398509481983ULL * 1024},
        MeminfoCase{"TooManyFields", "MemFree: 1 kB extra\n", "MemFree", std::nullopt},
        MeminfoCase{"NoColon", "MemFree 1 kB\n", "MemFree", std::nullopt},
        MeminfoCase{"OddBytes", "Mem\xff\x00Free: 1 kB\n", "MemFree", std::nullopt},
        MeminfoCase{"Empty", "", "MemTotal", std::nullopt}),
    [](const auto& row) { return std::string(row.param.name); });

struct StatCase {
  const char* name;
  const char* text;
  size_t cores;
  uint64_t firstIdle;
  uint64_t firstSteal;
};
void PrintTo(const StatCase& c, std::ostream* os) { *os << c.name; }

class ProcStatTest : public ::testing::TestWithParam<StatCase> {};

TEST_P(ProcStatTest, ReadsCoreLines) {
  const auto cores = parseProcStat(GetParam().text);
  ASSERT_EQ(cores.size(), GetParam().cores);
  if (!cores.empty()) {
    EXPECT_EQ(cores[0].idle, GetParam().firstIdle);
    EXPECT_EQ(cores[0].steal, GetParam().firstSteal);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Lines, ProcStatTest,
    ::testing::Values(StatCase{"TotalLineOnly", "cpu  1 2 3 4 5 6 7 8 9 10\nintr 5\n", 0, 0, 0},
                      StatCase{"ThreeColumns", "cpu0 1 2 3\n", 0, 0, 0},
                      StatCase{"FourColumns", "cpu0 1 2 3 4\n", 1, 4, 0},
                      StatCase{"EightColumns", "cpu0 1 2 3 4 5 6 7 8\n", 1, 4, 8},
                      StatCase{"ElevenColumns", "cpu0 1 2 3 4 5 6 7 8 9 10 11\n", 1, 4, 8},
                      StatCase{"NearTop", "cpu0 1 2 3 18446744073709551615 0 0 0 9\n", 1,
                               18446744073709551615ULL, 9},
                      StatCase{"PastTop", "cpu0 1 2 3 18446744073709551616\n", 0, 0, 0},
                      StatCase{"Gap", "cpu0 1 2 3 4\ncpu2 1 2 3 5\n", 2, 4, 0},
                      StatCase{"NotACore", "cpux 1 2 3 4\ncpu 1 2 3 4\n", 0, 0, 0},
                      StatCase{"NonNumeric", "cpu0 1 2 x 4\n", 0, 0, 0},
                      StatCase{"Empty", "", 0, 0, 0}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(ProcStatTest, KeepsCoreNumbers) {
  const auto cores = parseProcStat("cpu0 1 2 3 4\ncpu3 1 2 3 4\n");
  ASSERT_EQ(cores.size(), 2u);
  EXPECT_EQ(cores[1].index, 3);
}

TEST(LoadavgTest, ReadsAveragesAndThreads) {
  const auto load = parseLoadavg("0.52 0.58 0.59 2/1234 5678\n");
  ASSERT_TRUE(load);
  EXPECT_DOUBLE_EQ(load->fiveMinutes, 0.58);
  EXPECT_EQ(load->threads, 1234u);
  for (const char* bad : {"", "0.5 0.5", "0.5 0.5 0.5 12", "a b c 1/2", "0.5 0.5 0.5 x/2"}) {
    EXPECT_FALSE(parseLoadavg(bad)) << bad;
  }
}

TEST(SwapsTest, ReadsEntriesInBytesAndUnescapesPaths) {
  const auto entries = parseSwaps(
      "Filename\tType\tSize\tUsed\tPriority\n"
      "/swap\\040space/swapfile file 2097148 10 -2\n"
      "/dev/zram0 partition 100 x 100\n"
      "/dev/dm-1 partition 4 4 -3\n");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].path, "/swap space/swapfile");
  EXPECT_EQ(entries[0].size, 2097148ULL * 1024);
  EXPECT_EQ(entries[0].used, 10240u);
  EXPECT_EQ(entries[1].path, "/dev/dm-1");
  EXPECT_TRUE(parseSwaps("").empty());
  EXPECT_TRUE(parseSwaps("Filename Type Size Used Priority\n").empty());
  EXPECT_EQ(parseSwaps("/x\\04 file 1 1 0\n").at(0).path, "/x\\04");
}

struct CpuListCase {
  const char* text;
  std::optional<size_t> count;
};
void PrintTo(const CpuListCase& c, std::ostream* os) { *os << c.text; }

class CpuListTest : public ::testing::TestWithParam<CpuListCase> {};

TEST_P(CpuListTest, CountsProcessors) {
  const auto cpus = parseCpuList(GetParam().text);
  ASSERT_EQ(cpus.has_value(), GetParam().count.has_value());
  if (cpus) {
    EXPECT_EQ(cpus->size(), *GetParam().count);
  }
}

INSTANTIATE_TEST_SUITE_P(Lists, CpuListTest,
                         ::testing::Values(CpuListCase{"0-3\n", 4}, CpuListCase{"0\n", 1},
                                           CpuListCase{"0-1,4,6-7", 5}, CpuListCase{"\n", 0},
                                           CpuListCase{"3-1", std::nullopt},
                                           CpuListCase{"0-", std::nullopt},
                                           CpuListCase{"0-99999999", std::nullopt},
                                           CpuListCase{"a", std::nullopt}));

struct MillidegreesCase {
  const char* text;
  std::optional<double> celsius;
};
void PrintTo(const MillidegreesCase& c, std::ostream* os) { *os << c.text; }

class MillidegreesTest : public ::testing::TestWithParam<MillidegreesCase> {};

TEST_P(MillidegreesTest, ReadsSensorValues) {
  EXPECT_EQ(parseMillidegrees(GetParam().text), GetParam().celsius);
}

INSTANTIATE_TEST_SUITE_P(
    Values, MillidegreesTest,
    ::testing::Values(MillidegreesCase{"59500\n", 59.5}, MillidegreesCase{"59500", 59.5},
                      MillidegreesCase{"-", std::nullopt}, MillidegreesCase{"-5000\n", -5.0},
                      MillidegreesCase{"250000\n", std::nullopt},
                      MillidegreesCase{"200000\n", 200.0}, MillidegreesCase{"", std::nullopt},
                      MillidegreesCase{"4e4", std::nullopt},
                      MillidegreesCase{"-273000", std::nullopt}));

TEST(CpuinfoTest, ReadsModelSpeedAndDistinctCores) {
  const CpuInfo info = parseCpuinfo(
      "processor\t: 0\nmodel name\t: AMD EPYC\ncpu MHz\t\t: 2095.986\nphysical id\t: 0\n"
      "core id\t\t: 0\n\nprocessor\t: 1\nmodel name\t: AMD EPYC\ncpu MHz\t\t: 1000\n"
      "physical id\t: 0\ncore id\t\t: 0\n\nprocessor\t: 2\nphysical id\t: 1\ncore id\t\t: 0\n");
  EXPECT_EQ(info.modelName, "AMD EPYC");
  EXPECT_DOUBLE_EQ(info.megahertz.value_or(0), 2095.986);
  EXPECT_EQ(info.processors, 3);
  EXPECT_EQ(info.cores, 2);

  const CpuInfo arm = parseCpuinfo("processor\t: 0\nBogoMIPS\t: 108.00\nHardware\t: BCM2835\n");
  EXPECT_FALSE(arm.modelName);
  EXPECT_FALSE(arm.megahertz);
  EXPECT_EQ(arm.cores, 0);
}

TEST(KeyValueFileTest, ReadsOsReleaseShapes) {
  const auto values = parseKeyValueFile(
      "# comment\nNAME=\"Debian GNU/Linux\"\nID=debian\nPRETTY_HOSTNAME='Ann\\'s'\n"
      "VERSION=\"12 \\\"bookworm\\\"\"\nBROKEN=\"open\nbad key=1\n=nokey\n");
  EXPECT_EQ(values.at("NAME"), "Debian GNU/Linux");
  EXPECT_EQ(values.at("ID"), "debian");
  EXPECT_EQ(values.at("VERSION"), "12 \"bookworm\"");
  EXPECT_FALSE(values.contains("BROKEN"));
  EXPECT_FALSE(values.contains("VERSION_ID"));
  EXPECT_EQ(values.size(), 4u);
}

TEST(PasswdTest, FindsTheUserAndTheFullName) {
  const char* passwd =
      "root:x:0:0:root:/root:/bin/bash\nbroken:x:1000\nann:x:1000:1000:Ann Example,,,:/home/ann:"
      "/bin/bash\n";
  const auto ann = findPasswdEntry(passwd, 1000);
  ASSERT_TRUE(ann);
  EXPECT_EQ(ann->name, "ann");
  EXPECT_EQ(ann->fullName, "Ann Example");
  EXPECT_FALSE(findPasswdEntry(passwd, 4242));
}

TEST(ZramTest, ReadsOriginalAndUsedBytes) {
  const auto usage = parseZramMmStat("  1048576   262144   524288  0 524288 0 0 0 0\n");
  ASSERT_TRUE(usage);
  EXPECT_EQ(usage->original, 1048576u);
  EXPECT_EQ(usage->used, 524288u);
  EXPECT_FALSE(parseZramMmStat("1 2\n"));
}

TEST(TrimmedValueTest, DropsNewLinesAndDeviceTreeNul) {
  EXPECT_EQ(trimmedValue(std::string("Pi 4\0", 5)), "Pi 4");
  EXPECT_EQ(trimmedValue(std::string("x\n")), "x");
  EXPECT_FALSE(trimmedValue(std::string("\n")));
  EXPECT_FALSE(trimmedValue(std::nullopt));
}

struct WholeCase {
  const char* text;
  std::optional<uint64_t> unsignedValue;
  std::optional<int64_t> signedValue;
};

class WholeNumberTest : public ::testing::TestWithParam<WholeCase> {};

// Sysfs values end in a new line; currents may be negative; anything else is no number.
TEST_P(WholeNumberTest, WholeTextOrNothing) {
  EXPECT_EQ(parseUnsigned(GetParam().text), GetParam().unsignedValue);
  EXPECT_EQ(parseSigned(GetParam().text), GetParam().signedValue);
}

INSTANTIATE_TEST_SUITE_P(
    Values, WholeNumberTest,
    ::testing::Values(WholeCase{"42\n", 42, 42}, WholeCase{" -1500000\n", std::nullopt, -1500000},
                      WholeCase{"18446744073709551615", UINT64_MAX, std::nullopt},
                      WholeCase{"-9223372036854775808", std::nullopt, INT64_MIN},
                      WholeCase{"12 mA", std::nullopt, std::nullopt},
                      WholeCase{"", std::nullopt, std::nullopt},
                      WholeCase{"-", std::nullopt, std::nullopt}));

// /proc/PID/stat as the kernel prints it; the name runs to the last ")" whatever it holds.
constexpr const char* kStatTail =
    " S 1 2001 2001 0 -1 4194560 100 0 0 0 10 5 0 0 20 0 4 0 500 123456789 1000 "
    "18446744073709551615 1 1 0 0 0 0 0 4096 0 0 0 17 3 0 0 0 0 0\n";

TEST(PidStatTest, TakesTheNameToTheLastParenthesis) {
  const std::pair<std::string, std::string> names[] = {
      {"bash", "bash"},
      {"a) (b", "a) (b"},
      {"x) S 1 2 3 (", "x) S 1 2 3 ("},
      {"two\nlines", "two\nlines"},
      {"", ""},
  };
  for (const auto& [comm, expected] : names) {
    const auto stat = parsePidStat("2001 (" + comm + ")" + kStatTail);
    ASSERT_TRUE(stat) << comm;
    EXPECT_EQ(stat->comm, expected);
    EXPECT_EQ(stat->pid, 2001);
    EXPECT_EQ(stat->state, 'S');
    EXPECT_EQ(stat->parentPid, 1u);
    EXPECT_EQ(stat->userTicks, 10u);
    EXPECT_EQ(stat->systemTicks, 5u);
    EXPECT_EQ(stat->startTicks, 500u);
    EXPECT_EQ(stat->virtualBytes, 123456789u);
    EXPECT_EQ(stat->residentPages, 1000u);
  }
}

TEST(PidStatTest, RefusesWhatIsNotAWholeRecord) {
  const std::string whole = std::string("2001 (a)") + kStatTail;
  const std::string bad[] = {
      "",
      whole.substr(0, whole.size() / 2),  // cut while read: the process ended
      "2001 a" + std::string(kStatTail),
      "(a)" + std::string(kStatTail),
      "-5 (a)" + std::string(kStatTail),
      "99999999999 (a)" + std::string(kStatTail),
      "2001 (a) SX 1" + whole.substr(whole.find(" 1 ") + 2),  // two-letter state
      "2001 (a) S x" + whole.substr(whole.find(" 1 ") + 2),
  };
  for (const std::string& text : bad) EXPECT_FALSE(parsePidStat(text)) << text;
}

TEST(StatusFieldTest, FindsKeysOfStatusAndIoFiles) {
  const std::string status =
      "Name:\tsleep\nUid:\t1000\t1000\t1000\t1000\nVmRSS:\t    1792 kB\n"
      "VmSwap:\t       0 kB\n";
  EXPECT_EQ(statusField(status, "Uid"), "1000\t1000\t1000\t1000");
  EXPECT_EQ(statusField(status, "VmRSS"), "1792 kB");
  EXPECT_EQ(statusField(status, "Vm"), std::nullopt);
  EXPECT_EQ(statusField(status, "Gid"), std::nullopt);
  EXPECT_EQ(statusField("syscr: 40\nsyscw: 12", "syscw"), "12");
}

TEST(EnvironValueTest, FindsWholeNamesInTheBlock) {
  const std::string block(
      "A=1\0GIO_LAUNCHED_DESKTOP_FILE_PID=42\0GIO_LAUNCHED_DESKTOP_FILE=/x\0"
      "EMPTY=\0",
      73);
  EXPECT_EQ(environValue(block, "GIO_LAUNCHED_DESKTOP_FILE"), "/x");
  EXPECT_EQ(environValue(block, "GIO_LAUNCHED_DESKTOP_FILE_PID"), "42");
  EXPECT_EQ(environValue(block, "A"), "1");
  EXPECT_EQ(environValue(block, "EMPTY"), "");
  EXPECT_EQ(environValue(block, "GIO"), std::nullopt);
  EXPECT_EQ(environValue(std::string_view("A=1", 3), "A"), "1");  // no final NUL
}

}  // namespace proc_parsers_test
}  // namespace vexa
