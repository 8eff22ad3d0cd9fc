#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>

#include "status/StatusRecorder.h"
#include "util/MountTable.h"
#include "vexa/status/CPUStatus.h"
#include "vexa/status/DiskStatus.h"
#include "vexa/status/MemoryStatus.h"
#include "vexa/status/NetworkStatus.h"
#include "vexa/status/SystemStatus.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace status_live_test {

using namespace std::chrono_literals;
using test::StatusRecorder;

// Also hears the shared disk and network samplers.
class DeviceRecorder : public StatusRecorder, public NetworkDelegate, public DiskDelegate {
 public:
  void networkStatus(const nlohmann::json&) override { ++network; }
  void diskDetails(const nlohmann::json& volumes) override { disks.push_back(volumes); }
  std::atomic<int> network{0};
  std::vector<nlohmann::json> disks;
};

// The shared samplers of this machine report on their own timers within two seconds, on the
// loop of the thread that made them.
TEST(StatusLiveTest, SharedSamplersReportWithinTwoSeconds) {
  MemoryStatus* memory = MemoryStatus::shared();
  CPUStatus* cpu = CPUStatus::shared();
  ASSERT_TRUE(memory && cpu);
  EXPECT_EQ(memory, MemoryStatus::shared());
  auto recorder = std::make_shared<DeviceRecorder>();
  memory->setDelegate(recorder);
  cpu->setDelegate(recorder);
  NetworkStatus::shared()->setDelegate(recorder);
  DiskStatus::shared()->setDelegate(recorder);
  const RunLoop loop = RunLoop::current();
  EXPECT_TRUE(loop.runUntil(
      [&] {
        return !recorder->calls("updateMemoryStatus").empty() &&
               !recorder->calls("cpuUsedWithSystem").empty() && !recorder->disks.empty() &&
               recorder->network > 0;
      },
      2500ms));
  NetworkStatus::shared()->setDelegate(nullptr);
  DiskStatus::shared()->setDelegate(nullptr);
  EXPECT_EQ(recorder->calls("cpuUsedWithCore").size() / recorder->calls("cpuUsedWithSystem").size(),
            static_cast<size_t>(cpu->numberOfCPUs()));
  // No sensor on a machine without hwmon and thermal zones: no temperature.
  if (!std::filesystem::exists("/sys/class/hwmon") &&
      std::filesystem::is_empty("/sys/class/thermal")) {
    EXPECT_TRUE(recorder->calls("cpuWithTemperature").empty());
  }
  EXPECT_TRUE(SystemStatus::shared().sysOSVersion());
  // The root file system is listed when it is a local disk file system.
  for (const auto& entry : MountTable::read("/proc/self/mountinfo")) {
    if (entry.mountPoint != "/" || entry.fsType != "ext4") continue;
    ASSERT_FALSE(recorder->disks.empty());
    ASSERT_FALSE(recorder->disks[0].empty());
    EXPECT_EQ(recorder->disks[0][0]["disk_path"], "/");
    EXPECT_EQ(recorder->disks[0][0]["disk_backups"], 0);
  }
}

// Setting the interval it already has keeps the timer: samples keep their one-second rhythm
// instead of starting a new period.
TEST(StatusLiveTest, UnchangedIntervalKeepsTheTimer) {
  auto cpu = CPUStatus::create("/");
  ASSERT_TRUE(cpu);
  auto recorder = std::make_shared<StatusRecorder>();
  cpu->setDelegate(recorder);
  const RunLoop loop = RunLoop::current();
  const auto start = std::chrono::steady_clock::now();
  // Re-set every 300 ms: a timer made anew each time would never fire.
  while (std::chrono::steady_clock::now() - start < 1600ms &&
         recorder->calls("cpuUsedWithSystem").empty()) {
    cpu->setFreshInterval(1);
    loop.runUntil([] { return false; }, 300ms);
  }
  EXPECT_EQ(recorder->calls("cpuUsedWithSystem").size(), 1u);
  EXPECT_EQ(cpu->freshInterval(), 1);

  cpu->setFreshInterval(0);
  recorder->clear();
  loop.runUntil([] { return false; }, 1200ms);
  EXPECT_EQ(recorder->size(), 0u);
}

}  // namespace status_live_test
}  // namespace vexa
