// The watcher at the kernel's limits. These tests change system-wide inotify settings for a
// moment, so they run alone (RUN_SERIAL), only when VEXA_TEST_SYSTEM_SETTINGS=1 asks for them,
// and only where the settings can be written (root).
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "events/linux/InotifyWatcher.h"
#include "support/Signal.h"
#include "support/TempDir.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace inotify_limits_test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Sets a sysctl for one scope, and puts the previous value back when the scope ends however it
// ends (a failed assertion returns early) or when restore() is called.
class ScopedSysctl {
 public:
  ScopedSysctl(std::string path, const std::string& value) : path_(std::move(path)) {
    if (!(std::ifstream(path_) >> old_)) return;
    std::ofstream out(path_);
    out << value << std::flush;
    changed_ = static_cast<bool>(out);
  }
  ~ScopedSysctl() { restore(); }
  ScopedSysctl(const ScopedSysctl&) = delete;
  ScopedSysctl& operator=(const ScopedSysctl&) = delete;

  void restore() {
    if (!changed_) return;
    changed_ = false;
    std::ofstream out(path_);
    out << old_ << std::flush;
    std::string now;
    std::ifstream(path_) >> now;
    if (!out || now != old_) ADD_FAILURE() << "could not put " << path_ << " back to " << old_;
  }
  bool ok() const { return changed_; }

 private:
  std::string path_;
  std::string old_;
  bool changed_ = false;
};

// Watches the calling user holds in every process (from /proc/*/fdinfo).
size_t watchesInUse() {
  size_t n = 0;
  std::error_code ec;
  for (const auto& proc : fs::directory_iterator("/proc", ec)) {
    for (const auto& info : fs::directory_iterator(proc.path() / "fdinfo", ec)) {
      std::ifstream in(info.path());
      std::string line;
      while (std::getline(in, line)) n += line.rfind("inotify wd:", 0) == 0;
    }
  }
  return n;
}

class InotifyLimitsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* wanted = std::getenv("VEXA_TEST_SYSTEM_SETTINGS");
    if (!wanted || std::string(wanted) != "1") {
      GTEST_SKIP() << "changes system-wide inotify settings; set VEXA_TEST_SYSTEM_SETTINGS=1 to "
                      "run it";
    }
    SystemLog::setSink([this](const std::string& m) {
      std::lock_guard lock(mutex);
      logged.push_back(m);
      logSignal.add();
    });
  }
  void TearDown() override { SystemLog::setSink(nullptr); }
  std::string lastLog() {
    std::lock_guard lock(mutex);
    return logged.empty() ? "" : logged.back();
  }
  bool received(const std::string& path, uint32_t flag) {
    std::lock_guard lock(mutex);
    for (const auto& e : events) {
      if (e.path == path && (e.flags & flag)) return true;
    }
    return false;
  }
  EventStream::Callback collector() {
    return [this](const std::vector<FsEvent>& batch) {
      std::lock_guard lock(mutex);
      events.insert(events.end(), batch.begin(), batch.end());
    };
  }

  test::TempDir dir;
  std::mutex mutex;
  std::vector<std::string> logged;
  std::vector<FsEvent> events;
  test::Signal logSignal;
};

TEST_F(InotifyLimitsTest, QueueOverflowIsRepairedByCrawlingAgain) {
  ScopedSysctl queue("/proc/sys/fs/inotify/max_queued_events", "16");
  if (!queue.ok()) GTEST_SKIP() << "cannot change fs.inotify.max_queued_events here";
  // Turned by hand, so that nothing reads the kernel's queue while it fills up.
  InotifyWatcher::Options options;
  options.ownThread = false;
  auto watcher = InotifyWatcher::create(options);  // takes the queue size when made
  queue.restore();
  ASSERT_TRUE(watcher);
  dir.mkdir("root/busy");
  watcher->subscribe({dir / "root"}, kEventIdSinceNow, 0.05, RunLoop::main(), collector());
  watcher->step(0);
  ASSERT_TRUE(watcher->waitUntilSettled(0s));

  // Far more events than the queue holds, with a folder made in the middle of them: its
  // creation event is lost with the others.
  for (int i = 0; i < 100; ++i) {
    dir.write("root/busy/f" + std::to_string(i), "");
    if (i == 50) dir.mkdir("root/busy/made-during-the-flood");
  }
  watcher->step(0);
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_NE(logged[0].find("overflowed"), std::string::npos) << logged[0];
  // The crawl restored the watches: the new folder is watched now.
  const std::string after = dir.write("root/busy/made-during-the-flood/after", "");
  EXPECT_TRUE(RunLoop::main().runUntil(
      [&] {
        watcher->step(5);
        return received(after, fsevent::kItemCreated);
      },
      10s));
  EXPECT_TRUE(received(dir / "root", fsevent::kMustScanSubDirs));
}

TEST_F(InotifyLimitsTest, TheWatchLimitIsReportedOnceAndTheRestKeepsWorking) {
  const size_t allowed = watchesInUse() + 3;
  ScopedSysctl limit("/proc/sys/fs/inotify/max_user_watches", std::to_string(allowed));
  if (!limit.ok()) GTEST_SKIP() << "cannot change fs.inotify.max_user_watches here";
  for (int i = 0; i < 10; ++i) dir.mkdir("root/d" + std::to_string(i));
  auto watcher = InotifyWatcher::create();
  ASSERT_TRUE(watcher);
  watcher->subscribe({dir / "root"}, kEventIdSinceNow, 0.05, RunLoop::main(), collector());
  ASSERT_TRUE(watcher->waitUntilSettled(10s));
  limit.restore();
  EXPECT_TRUE(watcher->watchLimitReached());
  EXPECT_LE(watcher->watchCount(), 3u);
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_NE(logged[0].find("fs.inotify.max_user_watches"), std::string::npos) << logged[0];
  // The root itself is watched and still served.
  const std::string file = dir.write("root/top-level", "");
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return received(file, fsevent::kItemCreated); }, 10s));
}

}  // namespace inotify_limits_test
}  // namespace vexa
