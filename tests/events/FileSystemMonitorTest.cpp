#include "vexa/events/FileSystemMonitor.h"

#include <gtest/gtest.h>

#include "events/EventStream.h"
#include "support/FakeEventStream.h"
#include "support/RecordingDelegate.h"
#include "support/TempDir.h"
#include "vexa/util/Preferences.h"

namespace vexa {
namespace file_system_monitor_test {

using test::FakeStreamLog;
using Strings = std::vector<std::string>;

class FileSystemMonitorTest : public ::testing::Test {
 protected:
  FileSystemMonitorTest()
      : log(std::make_shared<FakeStreamLog>()),
        prefs(dir / "prefs.json"),
        monitor(std::make_unique<test::FakeEventStreamFactory>(log), prefs),
        delegate(std::make_shared<test::RecordingDelegate>()) {
    monitor.setDelegate(delegate);
  }

  test::TempDir dir;
  std::shared_ptr<FakeStreamLog> log;
  Preferences prefs;
  FileSystemMonitor monitor;
  std::shared_ptr<test::RecordingDelegate> delegate;
};

TEST_F(FileSystemMonitorTest, PathSetChangesRestartTheStream) {
  const std::string a = dir.mkdir("a"), b = dir.mkdir("b");
  EXPECT_FALSE(monitor.addMonitorPath(dir / "missing"));
  EXPECT_TRUE(log->created.empty());
  EXPECT_FALSE(monitor.isRunning());

  EXPECT_TRUE(monitor.addMonitorPath(a));
  ASSERT_EQ(log->created.size(), 1u);
  EXPECT_EQ(log->created[0].paths, Strings{a});
  EXPECT_EQ(log->created[0].latency, 1.0);
  EXPECT_EQ(log->started, 1);

  EXPECT_TRUE(monitor.addMonitorPath(a));  // already there: no restart
  EXPECT_EQ(log->created.size(), 1u);

  EXPECT_TRUE(monitor.addMonitorPath(b));
  ASSERT_EQ(log->created.size(), 2u);
  EXPECT_EQ(log->created[1].paths, (Strings{a, b}));
  EXPECT_EQ(log->stopped, 1);

  monitor.removeMonitorPath(dir / "never-added");
  EXPECT_EQ(log->created.size(), 2u);
  monitor.removeMonitorPath(a);
  ASSERT_EQ(log->created.size(), 3u);
  EXPECT_EQ(log->created[2].paths, Strings{b});
  monitor.removeMonitorPath(b);
  EXPECT_FALSE(monitor.isRunning());
  EXPECT_EQ(log->stopped, 3);
  EXPECT_TRUE(monitor.paths().empty());
  EXPECT_FALSE(monitor.wakeupMonitor());

  EXPECT_TRUE(monitor.addMonitorPath(b));
  EXPECT_TRUE(monitor.wakeupMonitor());
  EXPECT_EQ(log->created.back().paths, Strings{b});
}

TEST_F(FileSystemMonitorTest, RemovalsAfterAStopOnRequestDoNotStartTheStreamAgain) {
  const std::string a = dir.mkdir("a"), b = dir.mkdir("b"), c = dir.mkdir("c");
  for (const auto& path : {a, b, c}) monitor.addMonitorPath(path);
  ASSERT_EQ(log->created.size(), 3u);
  monitor.stopMonitor();
  monitor.removeMonitorPath(a);  // a program stopping its monitors one by one
  monitor.removeMonitorPath(b);
  EXPECT_EQ(log->created.size(), 3u);
  EXPECT_FALSE(monitor.isRunning());
  EXPECT_EQ(monitor.paths(), Strings{c});
  // An addition starts it again, and removals restart it as before.
  EXPECT_TRUE(monitor.addMonitorPath(a));
  EXPECT_EQ(log->created.back().paths, (Strings{c, a}));
  monitor.removeMonitorPath(c);
  EXPECT_EQ(log->created.back().paths, Strings{a});
  EXPECT_TRUE(monitor.isRunning());
}

TEST_F(FileSystemMonitorTest, StoredZeroMeansFromNowOn) {
  EXPECT_EQ(monitor.syncEventID(), -1);
  ASSERT_TRUE(monitor.addMonitorPath(dir.path()));
  EXPECT_EQ(log->created.back().sinceWhen, kEventIdSinceNow);
  monitor.setSyncEventID(41);
  EXPECT_EQ(monitor.syncEventID(), 41);
  EXPECT_TRUE(monitor.wakeupMonitor());
  EXPECT_EQ(log->created.back().sinceWhen, 41u);
  monitor.setSyncEventID(0);
  EXPECT_EQ(monitor.syncEventID(), -1);
}

TEST_F(FileSystemMonitorTest, RenamesPairByConsecutiveIdentifiers) {
  ASSERT_TRUE(monitor.addMonitorPath(dir.path()));
  log->latestId = 42;
  monitor.processBatch({"/a/old", "/a/new"}, {0x800, 0x800}, {41, 42});
  EXPECT_EQ(delegate->calls(), (Strings{"moveout /a/old", "move /a/old -> /a/new"}));
  EXPECT_EQ(prefs.integerForKey("SyncEventID"), 42);
}

TEST_F(FileSystemMonitorTest, PairingChainsAndNeedsExactlyTheNextIdentifier) {
  ASSERT_TRUE(monitor.addMonitorPath(dir.path()));
  const std::string exists = dir.write("here", "");
  monitor.processBatch({"/x/1", "/x/2", "/x/3", "/x/5", exists},
                       {0x800, 0x800, 0x800, 0x800, 0x800}, {10, 11, 12, 14, 20});
  EXPECT_EQ(delegate->calls(), (Strings{"moveout /x/1", "move /x/1 -> /x/2", "move /x/2 -> /x/3",
                                        "moveout /x/5", "movein " + exists}));
}

TEST_F(FileSystemMonitorTest, PairingDoesNotSurviveTheBatch) {
  ASSERT_TRUE(monitor.addMonitorPath(dir.path()));
  monitor.processBatch({"/a/old"}, {0x800}, {41});
  monitor.processBatch({"/a/new"}, {0x800}, {42});
  EXPECT_EQ(delegate->calls(), (Strings{"moveout /a/old", "moveout /a/new"}));
}

TEST_F(FileSystemMonitorTest, FlagBitsAreTestedIndependently) {
  ASSERT_TRUE(monitor.addMonitorPath(dir.path()));
  monitor.processBatch({"/p", "/q", "/r", "/s", "/t", "/u"},
                       {0x1100, 0x900, 0x200 | 0x1000, 0x400, 0x10100, 0x1}, {1, 3, 5, 7, 9, 11});
  EXPECT_EQ(delegate->calls(), (Strings{"created /p", "modified /p", "moveout /q", "removed /r",
                                        "modified /r", "created /t", "lost /u"}));
}

TEST_F(FileSystemMonitorTest, AnEmptyBatchStillStoresTheLatestIdentifier) {
  ASSERT_TRUE(monitor.addMonitorPath(dir.path()));
  log->latestId = 977;
  monitor.processBatch({}, {}, {});
  EXPECT_EQ(prefs.integerForKey("SyncEventID"), 977);
  EXPECT_TRUE(delegate->calls().empty());
}

TEST_F(FileSystemMonitorTest, WithoutADelegateNothingIsCalledAndNothingBreaks) {
  monitor.setDelegate({});
  ASSERT_TRUE(monitor.addMonitorPath(dir.path()));
  monitor.processBatch({"/a", "/b"}, {0x100, 0x800}, {1, 2});
  EXPECT_TRUE(delegate->calls().empty());
}

}  // namespace file_system_monitor_test
}  // namespace vexa
