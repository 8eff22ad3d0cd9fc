#include <gtest/gtest.h>

#include <ostream>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "status/StatusRecorder.h"
#include "support/TempDir.h"
#include "vexa/status/CPUStatus.h"
#include "vexa/status/MemoryStatus.h"
#include "vexa/status/SystemStatus.h"

namespace vexa {
namespace samplers_test {

using test::StatusRecorder;

std::string machine(const std::string& name) {
  return std::string(VEXA_TEST_DATA_DIR) + "/machines/" + name;
}

struct MachineCase {
  const char* name;
  int32_t cpus;
  std::optional<std::string> speed;
  std::optional<double> temperature;
  uint64_t physicalMemory;
  std::string swapPath;
  std::string swapPrefix;
  std::optional<std::string> computerName;
  std::string osVersionStart;
  std::optional<std::string> model;
  std::optional<std::string> processor;
  uint64_t processorCount;
};
void PrintTo(const MachineCase& c, std::ostream* os) { *os << c.name; }

class FixtureMachineTest : public ::testing::TestWithParam<MachineCase> {};

TEST_P(FixtureMachineTest, CpuSamplerReportsEveryCall) {
  const MachineCase& expected = GetParam();
  auto cpu = CPUStatus::create(machine(expected.name));
  ASSERT_TRUE(cpu);
  EXPECT_EQ(cpu->cpuName(), "Intel");
  EXPECT_EQ(cpu->numberOfCPUs(), expected.cpus);
  EXPECT_EQ(cpu->cpuSpeed(), expected.speed);
  auto recorder = std::make_shared<StatusRecorder>();
  cpu->setDelegate(recorder);
  cpu->updateInfo();

  // Counters that did not move: every share is 0.
  const auto cores = recorder->calls("cpuUsedWithCore");
  ASSERT_EQ(cores.size(), static_cast<size_t>(expected.cpus));
  EXPECT_EQ(cores.back()["core"], expected.cpus - 1);
  EXPECT_EQ(cores.back()["idle"], 0.0);
  ASSERT_EQ(recorder->calls("cpuUsedWithSystem").size(), 1u);
  const auto tasks = recorder->calls("processorWithTaskCount");
  ASSERT_EQ(tasks.size(), 1u);
  EXPECT_GT(tasks[0]["taskCount"].get<int>(), 0);
  ASSERT_EQ(recorder->calls("loadAverageWith1m").size(), 1u);
  const auto temperature = recorder->calls("cpuWithTemperature");
  if (expected.temperature) {
    ASSERT_EQ(temperature.size(), 1u);
    EXPECT_DOUBLE_EQ(temperature[0]["temperature"].get<double>(), *expected.temperature);
  } else {
    EXPECT_TRUE(temperature.empty());
  }
}

TEST_P(FixtureMachineTest, MemorySamplerSendsSwapOnTheFirstSampleOnly) {
  const MachineCase& expected = GetParam();
  auto memory = MemoryStatus::create(machine(expected.name));
  ASSERT_TRUE(memory);
  EXPECT_EQ(memory->physicalMemory(), expected.physicalMemory);
  auto recorder = std::make_shared<StatusRecorder>();
  memory->setDelegate(recorder);
  memory->updateInfo();
  memory->updateInfo();

  const auto samples = recorder->calls("updateMemoryStatus");
  ASSERT_EQ(samples.size(), 2u);
  const auto& first = samples[0];
  EXPECT_EQ(first["swap"]["swap_path"], expected.swapPath);
  EXPECT_EQ(first["swap"]["swap_prefix"], expected.swapPrefix);
  EXPECT_TRUE(samples[1]["swap"].is_null());
  EXPECT_EQ(memory->swapPath(), expected.swapPath);
  const auto& dict = first["memory"];
  EXPECT_EQ(dict["memory_total"].get<uint64_t>(),
            dict["memory_freepage"].get<uint64_t>() + dict["memory_active"].get<uint64_t>() +
                dict["memory_inactive"].get<uint64_t>() + dict["memory_wired"].get<uint64_t>() +
                dict["memory_compressed"].get<uint64_t>());
  // Same counters twice: the second sample's deltas are 0.
  EXPECT_EQ(samples[1]["vm"]["vm_deltapageins"], 0u);
  EXPECT_GT(memory->usedPercent(), 0.0);
  EXPECT_LT(memory->usedPercent(), 1.0);
}

TEST_P(FixtureMachineTest, SystemIdentity) {
  const MachineCase& expected = GetParam();
  auto system = SystemStatus::create(machine(expected.name));
  EXPECT_EQ(system->computerName(), expected.computerName);
  ASSERT_TRUE(system->sysOSVersion());
  EXPECT_EQ(system->sysOSVersion()->rfind(expected.osVersionStart, 0), 0u)
      << *system->sysOSVersion();
  EXPECT_EQ(system->sysModelID(), expected.model);
  EXPECT_EQ(system->sysProcessorName(), expected.processor);
  EXPECT_EQ(system->sysProcessorCount(), expected.processorCount);
  EXPECT_EQ(system->sysPhysicalMemory(), expected.physicalMemory);
  ASSERT_TRUE(system->sysUUID());
  EXPECT_EQ(system->sysUUID()->size(), 36u);
  EXPECT_EQ(system->dictionary().size(), 12u);
}

constexpr uint64_t kGiB = 1024ULL * 1024 * 1024;

INSTANTIATE_TEST_SUITE_P(
    Machines, FixtureMachineTest,
    ::testing::Values(MachineCase{"intel-laptop", 4, "3.00 GHz", 59.5, 8 * 128 * 1024 * 1024ULL,
                                  "/dev", "zram0", "Ann's Laptop",
                                  "Ubuntu 23.10 (6.5.0-14-generic)", "XPS 13 9310", "Intel Core i7",
                                  2},
                      MachineCase{"amd-desktop", 8, "3.80 GHz", 45.125, 4 * kGiB, "/swap space",
                                  "swapfile", "ryzen", "Debian GNU/Linux 12 (6.1.0-18-amd64)",
                                  "MS-7C02", "AMD Ryzen Core Processor", 4},
                      MachineCase{"arm-board", 4, "1.80 GHz", 44.79, 3880000ULL * 1024, "/",
                                  "swapfile", "raspberrypi", "Debian GNU/Linux (6.1.21-v8+)",
                                  "Raspberry Pi 4 Model B Rev 1.4", std::nullopt, 4},
                      MachineCase{"vm-2cpu", 2, "2.10 GHz", std::nullopt, 24 * kGiB, "/",
                                  "swapfile", "vm", "Debian GNU/Linux 12 (6.18.44", std::nullopt,
                                  "AMD EPYC", 2}),
    [](const auto& row) {
      std::string name = row.param.name;
      std::replace(name.begin(), name.end(), '-', '_');
      return name;
    });

// A copy of a fixture machine whose files a test may rewrite between samples.
class WritableMachine {
 public:
  explicit WritableMachine(const std::string& name) {
    std::filesystem::copy(machine(name), dir_.path(), std::filesystem::copy_options::recursive);
  }
  void write(const std::string& path, const std::string& text) const { dir_.write(path, text); }
  const std::string& root() const { return dir_.path(); }

 private:
  test::TempDir dir_;
};

// A CPU sampler over a writable copy of the VM fixture, reporting to a recorder; start() once
// the test has written the files the first reading needs.
class CpuOnMachine : public ::testing::Test {
 protected:
  void start() {
    cpu_ = CPUStatus::create(box_.root());
    ASSERT_TRUE(cpu_);
    cpu_->setDelegate(recorder_);
  }
  WritableMachine box_{"vm-2cpu"};
  std::shared_ptr<StatusRecorder> recorder_ = std::make_shared<StatusRecorder>();
  std::shared_ptr<CPUStatus> cpu_;
};

TEST_F(CpuOnMachine, CoreOfflineIsSkippedAndComesBackFromItsOwnCounters) {
  box_.write("proc/stat", "cpu0 100 0 100 800 0\ncpu1 100 0 100 800 0\n");
  ASSERT_NO_FATAL_FAILURE(start());

  box_.write("proc/stat", "cpu0 150 0 150 900 0\n");
  cpu_->updateInfo();
  auto cores = recorder_->calls("cpuUsedWithCore");
  ASSERT_EQ(cores.size(), 1u);
  EXPECT_FLOAT_EQ(cores[0]["user"].get<float>(), 0.25F);
  EXPECT_FLOAT_EQ(recorder_->calls("cpuUsedWithSystem")[0]["idle"].get<float>(), 0.5F);

  recorder_->clear();
  box_.write("proc/stat", "cpu0 150 0 150 1000 0\ncpu1 5 0 5 10 0\n");
  cpu_->updateInfo();
  cores = recorder_->calls("cpuUsedWithCore");
  ASSERT_EQ(cores.size(), 2u);
  EXPECT_EQ(cores[1]["core"], 1);
  EXPECT_EQ(cores[1]["idle"], 0.0);
  EXPECT_FLOAT_EQ(cores[0]["idle"].get<float>(), 1.0F);

  recorder_->clear();
  box_.write("proc/stat", "cpu0 150 0 150 1100 0\ncpu1 15 0 5 100 0\n");
  cpu_->updateInfo();
  cores = recorder_->calls("cpuUsedWithCore");
  ASSERT_EQ(cores.size(), 2u);
  EXPECT_FLOAT_EQ(cores[1]["user"].get<float>(), 0.1F);
  EXPECT_FLOAT_EQ(cores[1]["idle"].get<float>(), 0.9F);
}

TEST_F(CpuOnMachine, TaskCountIsTakenAgainWhenLoadavgMoves) {
  box_.write("proc/loadavg", "0.10 0.10 0.10 1/50 700\n");
  ASSERT_NO_FATAL_FAILURE(start());
  const auto sample = [&] {
    recorder_->clear();
    cpu_->updateInfo();
    return recorder_->calls("processorWithTaskCount").at(0)["taskCount"].get<int>();
  };
  const int before = sample();
  std::filesystem::create_directory(box_.root() + "/proc/4242");
  EXPECT_EQ(sample(), before) << "no new pid and the same thread total: the count stands";
  box_.write("proc/loadavg", "0.10 0.10 0.10 1/51 4242\n");
  EXPECT_EQ(sample(), before + 1);
  std::filesystem::remove(box_.root() + "/proc/4242");
  box_.write("proc/loadavg", "0.10 0.10 0.10 1/50 4242\n");
  EXPECT_EQ(sample(), before) << "a task reaped lowers the total";
  // Without the newest pid nothing tells a change: every sample counts.
  box_.write("proc/loadavg", "0.10 0.10 0.10 1/50\n");
  std::filesystem::create_directory(box_.root() + "/proc/4243");
  EXPECT_EQ(sample(), before + 1);
}

TEST(CPUStatusTest, UnreadableStatGivesNoSamplerAndLaterNoReport) {
  test::TempDir empty;
  EXPECT_FALSE(CPUStatus::create(empty.path()));
  EXPECT_FALSE(MemoryStatus::create(empty.path()));

  WritableMachine box("vm-2cpu");
  auto cpu = CPUStatus::create(box.root());
  auto memory = MemoryStatus::create(box.root());
  ASSERT_TRUE(cpu && memory);
  auto recorder = std::make_shared<StatusRecorder>();
  cpu->setDelegate(recorder);
  memory->setDelegate(recorder);
  box.write("proc/stat", "intr 1\n");
  box.write("proc/meminfo", "MemTotal: 1");
  std::filesystem::remove(box.root() + "/proc/loadavg");
  cpu->updateInfo();
  memory->updateInfo();
  EXPECT_EQ(recorder->size(), 0u);
}

TEST(CPUStatusTest, FifoInPlaceOfAFileIsNotWaitedOn) {
  WritableMachine box("vm-2cpu");
  std::filesystem::remove(box.root() + "/proc/loadavg");
  ASSERT_EQ(mkfifo((box.root() + "/proc/loadavg").c_str(), 0600), 0);
  auto cpu = CPUStatus::create(box.root());
  ASSERT_TRUE(cpu);
  auto recorder = std::make_shared<StatusRecorder>();
  cpu->setDelegate(recorder);
  cpu->updateInfo();
  EXPECT_TRUE(recorder->calls("loadAverageWith1m").empty());
  EXPECT_EQ(recorder->calls("cpuUsedWithSystem").size(), 1u);
}

TEST(CPUStatusTest, TemperatureFileThatStopsAnsweringIsChosenAgain) {
  WritableMachine box("intel-laptop");
  auto cpu = CPUStatus::create(box.root());
  auto recorder = std::make_shared<StatusRecorder>();
  cpu->setDelegate(recorder);
  cpu->updateInfo();
  box.write("sys/class/hwmon/hwmon3/temp1_input", "-\n");
  cpu->updateInfo();
  cpu->updateInfo();
  const auto temperatures = recorder->calls("cpuWithTemperature");
  ASSERT_EQ(temperatures.size(), 3u);
  EXPECT_DOUBLE_EQ(temperatures[0]["temperature"].get<double>(), 59.5);
  // The package sensor is gone: the hottest core stands in from then on.
  EXPECT_DOUBLE_EQ(temperatures[1]["temperature"].get<double>(), 61.0);
  EXPECT_DOUBLE_EQ(temperatures[2]["temperature"].get<double>(), 61.0);
}

TEST(MemoryStatusTest, EncryptedSwapAndZram) {
  WritableMachine box("amd-desktop");
  box.write("proc/swaps",
            "Filename Type Size Used Priority\n/dev/dm-1 partition 1024 0 -2\n"
            "/dev/mapper/cryptswap2 partition 1024 0 -3\n");
  box.write("sys/block/dm-1/dm/uuid", "CRYPT-LUKS2-abc-cryptswap1\n");
  box.write("sys/block/dm-2/dm/uuid", "CRYPT-PLAIN-cryptswap2\n");
  box.write("sys/block/dm-2/dm/name", "cryptswap2\n");
  box.write("sys/block/zram0/mm_stat", "4096 1024 2048 0 2048 0 0 0 0\n");
  // A device never given a size is left out, whatever its file says.
  box.write("sys/block/zram1/disksize", "0\n");
  box.write("sys/block/zram1/mm_stat", "8192 8192 8192 0 8192 0 0 0 0\n");
  auto memory = MemoryStatus::create(box.root());
  auto recorder = std::make_shared<StatusRecorder>();
  memory->setDelegate(recorder);
  memory->updateInfo();
  const auto sample = recorder->calls("updateMemoryStatus").at(0);
  EXPECT_EQ(sample["swap"]["swap_encrypted"], true);
  EXPECT_EQ(sample["swap"]["swap_count"], 2u);
  EXPECT_EQ(sample["memory"]["memory_compressed"], 102400u * 1024 + 2048);
  EXPECT_EQ(sample["memory"]["memory_uncompressed"], 409600u * 1024 + 4096);
  EXPECT_EQ(sample["vm"]["vm_compressions"], 99u);

  box.write("sys/block/dm-2/dm/uuid", "LVM-abc\n");
  auto plain = MemoryStatus::create(box.root());
  plain->setDelegate(recorder);
  plain->updateInfo();
  EXPECT_EQ(recorder->calls("updateMemoryStatus").at(1)["swap"]["swap_encrypted"], false);
}

TEST(MemoryStatusTest, NoDelegateKeepsUsedPercent) {
  auto memory = MemoryStatus::create(machine("intel-laptop"));
  memory->updateInfo();
  EXPECT_EQ(memory->usedPercent(), 0.0);
  EXPECT_FALSE(memory->swapPath());
}

struct ClockCase {
  uint64_t hertz;
  const char* text;
};
void PrintTo(const ClockCase& c, std::ostream* os) { *os << c.hertz; }

class ClockRateTest : public ::testing::TestWithParam<ClockCase> {};

TEST_P(ClockRateTest, PrintsMegaOrGigahertz) {
  EXPECT_EQ(CPUStatus::formatClockRate(GetParam().hertz), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Rates, ClockRateTest,
                         ::testing::Values(ClockCase{1000000000ULL, "1000.00 MHz"},
                                           ClockCase{1000000001ULL, "1.00 GHz"},
                                           ClockCase{800000000ULL, "800.00 MHz"},
                                           ClockCase{2095986000ULL, "2.10 GHz"},
                                           ClockCase{0, "0.00 MHz"}));

struct BrandCase {
  std::optional<std::string> brand;
  std::optional<std::string> name;
};
void PrintTo(const BrandCase& c, std::ostream* os) {
  for (const char ch : c.brand.value_or("(none)")) *os << (ch >= ' ' && ch <= '~' ? ch : '?');
}

class BrandNameTest : public ::testing::TestWithParam<BrandCase> {};

TEST_P(BrandNameTest, KeepsTheFamilyWords) {
  EXPECT_EQ(SystemStatus::_parseBrandName(GetParam().brand), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    Brands, BrandNameTest,
    ::testing::Values(BrandCase{"Intel(R) Core(TM) i7-4770HQ CPU @ 2.20GHz", "Intel Core i7"},
                      BrandCase{"Intel(r) Xeon(tm) CPU E5-2680", "Intel Xeon"},
                      BrandCase{"AMD EPYC", "AMD EPYC"},
                      BrandCase{"AMD Ryzen 7 5800X 8-Core Processor", "AMD Ryzen Core Processor"},
                      BrandCase{"", ""}, BrandCase{"\xff\xfe CPU", ""},
                      BrandCase{std::nullopt, std::nullopt}));

TEST(SystemStatusTest, MissingFilesLeavePropertiesAbsent) {
  WritableMachine box("vm-2cpu");
  std::filesystem::remove(box.root() + "/etc/os-release");
  std::filesystem::remove(box.root() + "/etc/machine-id");
  std::filesystem::create_directories(box.root() + "/sys/class/dmi/id/product_serial");
  auto system = SystemStatus::create(box.root());
  EXPECT_FALSE(system->sysSerialNumber());
  EXPECT_FALSE(system->sysUUID());
  EXPECT_EQ(system->sysOSVersion()->rfind("Linux (", 0), 0u);
}

TEST(SystemStatusTest, UuidFromTheMachineIdIsStableAndHidesIt) {
  auto a = SystemStatus::create(machine("vm-2cpu"));
  auto b = SystemStatus::create(machine("arm-board"));
  ASSERT_TRUE(a->sysUUID() && b->sysUUID());
  EXPECT_EQ(*a->sysUUID(), *b->sysUUID());  // both fixtures carry the same machine id
  std::string hex = *a->sysUUID();
  hex.erase(std::remove(hex.begin(), hex.end(), '-'), hex.end());
  EXPECT_NE(hex, "0123456789ABCDEF0123456789ABCDEF");
  EXPECT_EQ(a->sysUUID()->at(14), '4');
}

}  // namespace samplers_test
}  // namespace vexa
