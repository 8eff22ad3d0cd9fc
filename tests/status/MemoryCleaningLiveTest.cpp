#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <gtest/gtest.h>

#include <ostream>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "status/MemoryCleaner.h"
#include "support/Signal.h"
#include "support/TempDir.h"
#include "vexa/status/MemoryCleaning.h"
#include "vexa/status/MemoryDelegate.h"
#include "vexa/status/MemoryStatus.h"

namespace vexa {
namespace memory_cleaning_live_test {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr uint64_t kMiB = uint64_t{1} << 20;

// A machine that reports 512 MiB free out of 4 GiB, with nothing under pressure: a budget of
// two 256 MiB chunks. (Pages are first touched at a few hundred MiB a second on a busy test
// machine, so a larger budget would not fill within the test's patience.)
class CleaningMachine {
 public:
  CleaningMachine() {
    dir_.write("proc/meminfo",
               "MemTotal: 4194304 kB\nMemFree: 524288 kB\nMemAvailable: 3145728 kB\n"
               "Active: 1048576 kB\nInactive: 1048576 kB\n");
    dir_.write("proc/pressure/memory", "some avg10=0.00 avg60=0.00 avg300=0.00 total=0\n");
    setenv("VEXA_MEMCLEAN", VEXA_MEMCLEAN_TOOL, 1);
  }
  const std::string& root() const { return dir_.path(); }

 private:
  test::TempDir dir_;
};

class CompletionRecorder : public MemoryDelegate {
 public:
  void clearMemoryCompleted() override {
    at = Clock::now();
    done.add();
  }
  test::Signal done;
  Clock::time_point at;
};

// The high-water mark of this process's vexa-memclean child while it runs, 0 when none runs.
uint64_t runningChildHighWaterKiB() {
  const std::string parent = "PPid:\t" + std::to_string(getpid()) + "\n";
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::string status;
    try {
      std::ifstream file(entry.path() / "status");
      status.assign(std::istreambuf_iterator<char>(file), {});
    } catch (const std::ios_base::failure&) {
      continue;  // a process that ended while listed: reading its file fails with ESRCH
    }
    if (status.find("Name:\tvexa-memclean\n") == std::string::npos ||
        status.find(parent) == std::string::npos) {
      continue;
    }
    const size_t hwm = status.find("VmHWM:");
    if (hwm != std::string::npos) return std::strtoull(status.c_str() + hwm + 6, nullptr, 10);
  }
  return 0;
}

long childPeakKiB() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return usage.ru_maxrss;
}

TEST(MemoryCleaningLiveTest, ChildStaysInBudgetAndStopsOnTheFlag) {
  CleaningMachine box;
  auto memory = MemoryStatus::create(box.root());
  ASSERT_TRUE(memory);
  auto recorder = std::make_shared<CompletionRecorder>();
  memory->setDelegate(recorder);
  int32_t flag = 0;
  memory->clearMemory(&flag);
  // Let a pass fill both chunks, then stop the child. On an idle machine that takes well under
  // a second; on one whose cores are taken by other work the child's own ten-second limit may
  // come first, and then only the limits below are checked, not how much it filled.
  const auto deadline = Clock::now() + 9s;
  bool filled = false;
  while (Clock::now() < deadline) {
    filled = runningChildHighWaterKiB() * 1024 >= 480 * kMiB;
    if (filled) break;
    std::this_thread::sleep_for(5ms);
  }
  const auto stopAt = Clock::now();
  __atomic_store_n(&flag, 1, __ATOMIC_RELAXED);
  // A look that still found the child began before it ended: the last one bounds its end
  // from below, the first that missed it from above.
  auto lastSeenAt = stopAt;
  for (;;) {
    const auto lookAt = Clock::now();
    if (runningChildHighWaterKiB() == 0 || lookAt >= stopAt + 2s) break;
    lastSeenAt = lookAt;
    std::this_thread::sleep_for(5ms);
  }
  const auto goneAt = Clock::now();
  EXPECT_LT(goneAt - stopAt, 200ms);
  ASSERT_TRUE(recorder->done.waitFor(1, 5s));
  // Completion comes a second after the child is gone.
  EXPECT_GE(recorder->at - lastSeenAt, 1s - 1ms);
  const long peak = childPeakKiB();
  EXPECT_LE(static_cast<uint64_t>(peak) * 1024, 512 * kMiB + 64 * kMiB);
  if (filled) {
    EXPECT_GE(static_cast<uint64_t>(peak) * 1024, 480 * kMiB);
  } else {
    EXPECT_GE(static_cast<uint64_t>(peak) * 1024, 64 * kMiB) << "the child filled nothing";
  }
}

TEST(MemoryCleaningLiveTest, FlagSetAtStartSkipsAllocationButStillCompletes) {
  CleaningMachine box;
  auto memory = MemoryStatus::create(box.root());
  auto recorder = std::make_shared<CompletionRecorder>();
  memory->setDelegate(recorder);
  int32_t flag = 1;
  const auto start = Clock::now();
  memory->clearMemory(&flag);
  ASSERT_TRUE(recorder->done.waitFor(1, 5s));
  EXPECT_GE(recorder->at - start, 1s);
  EXPECT_EQ(childPeakKiB(), 0);
}

struct PurgeCase {
  const char* name;
  uint64_t freeKiB;
  uint64_t activeKiB;
  int purges;
};
void PrintTo(const PurgeCase& c, std::ostream* os) { *os << c.name; }

class PurgeThresholdTest : public ::testing::TestWithParam<PurgeCase> {};

// A cleaning purges first when the last sample found (active + wired) / total at 0.95 or more.
TEST_P(PurgeThresholdTest, PurgesFromNinetyFivePercent) {
  test::TempDir box;
  box.write("proc/meminfo", "MemTotal: 100000 kB\nMemFree: " + std::to_string(GetParam().freeKiB) +
                                " kB\nMemAvailable: 1000 kB\nActive: " +
                                std::to_string(GetParam().activeKiB) + " kB\nInactive: 0 kB\n");
  std::atomic<int> purges{0};
  MemoryStatus::setPurger([&] {
    purges.fetch_add(1);
    return 1;
  });
  auto memory = MemoryStatus::create(box.path());
  auto recorder = std::make_shared<CompletionRecorder>();
  memory->setDelegate(recorder);
  memory->updateInfo();
  int32_t flag = 1;
  memory->clearMemory(&flag);
  ASSERT_TRUE(recorder->done.waitFor(1, 5s));
  EXPECT_EQ(purges.load(), GetParam().purges);
  MemoryStatus::setPurger(nullptr);
  EXPECT_EQ(memory->runPurge(), 0);
}

INSTANTIATE_TEST_SUITE_P(UsedShares, PurgeThresholdTest,
                         ::testing::Values(PurgeCase{"Exactly95", 5000, 95000, 1},
                                           PurgeCase{"Just Under", 5010, 94990, 0},
                                           PurgeCase{"Full", 0, 100000, 1}),
                         [](const auto& row) {
                           std::string name = row.param.name;
                           std::erase(name, ' ');
                           return name;
                         });

std::atomic<int> hostAlarms{0};
void hostAlarm(int) { hostAlarms.fetch_add(1); }

TEST(MemoryCleaningLiveTest, HostAlarmHandlerAndTimerAreUntouched) {
  CleaningMachine box;
  struct sigaction mine {};
  mine.sa_handler = hostAlarm;
  sigemptyset(&mine.sa_mask);
  ASSERT_EQ(sigaction(SIGALRM, &mine, nullptr), 0);
  itimerval timer{};
  timer.it_value.tv_sec = 30;
  ASSERT_EQ(setitimer(ITIMER_REAL, &timer, nullptr), 0);

  int32_t flag = 0;
  std::thread stopper([&] {
    std::this_thread::sleep_for(300ms);
    __atomic_store_n(&flag, 1, __ATOMIC_RELAXED);
  });
  std::atomic<bool> completed{false};
  // The plain function, as the older engine's callers use it.
  MemoryCleaner::setMachineRoot(box.root());
  clear_memory(nullptr, 0, &flag);
  completed = true;
  stopper.join();

  struct sigaction now {};
  ASSERT_EQ(sigaction(SIGALRM, nullptr, &now), 0);
  EXPECT_EQ(now.sa_handler, &hostAlarm);
  itimerval left{};
  ASSERT_EQ(getitimer(ITIMER_REAL, &left), 0);
  EXPECT_GT(left.it_value.tv_sec, 20);
  EXPECT_EQ(hostAlarms.load(), 0);
  EXPECT_TRUE(completed);
}

}  // namespace memory_cleaning_live_test
}  // namespace vexa
