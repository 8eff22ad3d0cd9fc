// The stream, the dispatcher and the kernel together.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "events/EventStream.h"
#include "support/RecordingDelegate.h"
#include "support/TempDir.h"
#include "vexa/events/FileSystemMonitor.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/Preferences.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace file_system_monitor_live_test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

// Turns the main loop (where batches arrive) until the delegate has `n` calls.
bool pumpUntil(test::RecordingDelegate& d, size_t n) {
  return RunLoop::main().runUntil([&] { return d.calls().size() >= n; }, 15s);
}

bool contains(const Strings& calls, const std::string& call) {
  return std::find(calls.begin(), calls.end(), call) != calls.end();
}

TEST(FileSystemMonitorLiveTest, EventsReachRegistrantsAndIdentifiersSurviveARestart) {
  test::TempDir dir;
  test::ScopedEnv data("XDG_DATA_HOME", dir / "data");
  const std::string home = dir.mkdir("home");
  const std::string trash = dir.mkdir("data/Trash/files");
  Preferences prefs(dir / "prefs.json");
  int64_t storedAfterFirstRun = 0;
  {
    FileSystemMonitor monitor(makePlatformEventStreamFactory(), prefs);
    auto dispatch = MonitorDispatch::create(monitor, DispatchQueue::global());
    auto delegate = std::make_shared<test::RecordingDelegate>();
    dispatch->addMonitorPath(home, delegate);
    dispatch->addMonitorPath(trash, delegate);

    // Writing a new file is a creation and a modification; the dispatcher's tasks may run in
    // any order.
    const std::string file = dir.write("home/doc.txt", "x");
    ASSERT_TRUE(pumpUntil(*delegate, 2));
    EXPECT_TRUE(contains(delegate->calls(), "created " + file));
    EXPECT_TRUE(contains(delegate->calls(), "modified " + file));

    fs::rename(file, trash + "/doc.txt");  // into the Trash: a move-in of the new place
    ASSERT_TRUE(pumpUntil(*delegate, 4));
    const Strings calls = delegate->calls();
    EXPECT_TRUE(contains(calls, "moveout " + file));
    EXPECT_TRUE(contains(calls, "movein " + trash + "/doc.txt"));
    storedAfterFirstRun = prefs.integerForKey("SyncEventID");
    EXPECT_GE(storedAfterFirstRun, 4);
  }
  // A new process (a new monitor over a new kernel watcher) goes on counting.
  FileSystemMonitor monitor(makePlatformEventStreamFactory(), prefs);
  auto delegate = std::make_shared<test::RecordingDelegate>();
  monitor.setDelegate(delegate);
  ASSERT_TRUE(monitor.addMonitorPath(home));
  // The watches are in place once the stream has started: a write now must be seen.
  const std::string later = dir.write("home/later.txt", "y");
  ASSERT_TRUE(pumpUntil(*delegate, 2));
  EXPECT_EQ(delegate->calls(), (Strings{"created " + later, "modified " + later}));
  EXPECT_EQ(prefs.integerForKey("SyncEventID"), storedAfterFirstRun + 2);
}

}  // namespace file_system_monitor_live_test
}  // namespace vexa
