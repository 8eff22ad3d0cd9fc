#include "vexa/events/MonitorDispatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "support/FakeEventStream.h"
#include "support/RecordingDelegate.h"
#include "support/TempDir.h"
#include "vexa/events/FileSystemMonitor.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/Preferences.h"

namespace vexa {
namespace monitor_dispatch_test {

using test::RecordingDelegate;
using Strings = std::vector<std::string>;

Strings sorted(Strings v) {
  std::sort(v.begin(), v.end());
  return v;
}

class MonitorDispatchTest : public ::testing::Test {
 protected:
  MonitorDispatchTest()
      : log(std::make_shared<test::FakeStreamLog>()),
        prefs(dir / "prefs.json"),
        monitor(std::make_unique<test::FakeEventStreamFactory>(log), prefs),
        dispatch(MonitorDispatch::create(monitor, DispatchQueue::global())),
        trash(dir / "data/Trash/files"),
        dataHome("XDG_DATA_HOME", dir / "data") {
    home = dir.mkdir("home");
    apps = dir.mkdir("home/Applications");
    std::filesystem::create_directories(trash);
  }

  test::TempDir dir;
  std::shared_ptr<test::FakeStreamLog> log;
  Preferences prefs;
  FileSystemMonitor monitor;
  std::shared_ptr<MonitorDispatch> dispatch;
  std::string trash;
  test::ScopedEnv dataHome;
  std::string home, apps;
};

TEST_F(MonitorDispatchTest, MissingFoldersAreNotRegisteredAndEachPairOnlyOnce) {
  auto a = std::make_shared<RecordingDelegate>();
  auto b = std::make_shared<RecordingDelegate>();
  dispatch->addMonitorPath(dir / "missing", a);
  EXPECT_TRUE(dispatch->registrations().empty());
  EXPECT_TRUE(log->created.empty());

  dispatch->addMonitorPath(home, a);
  dispatch->addMonitorPath(home, a);  // the same pair again: one entry
  ASSERT_EQ(dispatch->registrations().size(), 1u);
  EXPECT_EQ(dispatch->registrations()[0].second.size(), 1u);
  EXPECT_EQ(monitor.paths(), Strings{home});

  dispatch->addMonitorPath(home, b);
  dispatch->removeMonitorPath(home, a);
  EXPECT_EQ(monitor.paths(), Strings{home});  // b still registered
  dispatch->removeMonitorPath(home, a);       // not registered any more: nothing changes
  EXPECT_EQ(dispatch->registrations()[0].second.size(), 1u);
  dispatch->removeMonitorPath(home, b);
  EXPECT_TRUE(dispatch->registrations().empty());
  EXPECT_TRUE(monitor.paths().empty());
  EXPECT_FALSE(monitor.isRunning());
}

TEST_F(MonitorDispatchTest, RemovingAnUnknownDelegateStillDropsAnEmptyKey) {
  auto a = std::make_shared<RecordingDelegate>();
  auto stranger = std::make_shared<RecordingDelegate>();
  dispatch->addMonitorPath(home, a);
  dispatch->removeMonitorPath(home, stranger);  // a remains: nothing changes
  EXPECT_EQ(monitor.paths(), Strings{home});
  dispatch->removeMonitorPath(apps, stranger);  // not a key: nothing at all
  EXPECT_EQ(monitor.paths(), Strings{home});
}

TEST_F(MonitorDispatchTest, OverlappingRegistrationsDeliverOncePerMatchingKey) {
  auto a = std::make_shared<RecordingDelegate>();
  dispatch->addMonitorPath(home, a);
  dispatch->addMonitorPath(apps, a);
  const std::string app = apps + "/Editor.app";
  monitor.processBatch({app, home + "/notes.txt"}, {0x100, 0x1000}, {1, 2});
  ASSERT_TRUE(a->waitForCount(3));
  EXPECT_EQ(sorted(a->calls()),
            sorted({"created " + app, "created " + app, "modified " + home + "/notes.txt"}));
}

TEST_F(MonitorDispatchTest, PrefixMatchingIgnoresComponentBoundaries) {
  auto a = std::make_shared<RecordingDelegate>();
  dispatch->addMonitorPath(home, a);
  const std::string sibling = home + "-other/file";  // "/home" is a prefix of "/home-other"
  monitor.processBatch({sibling, dir / "elsewhere"}, {0x200, 0x200}, {1, 2});
  ASSERT_TRUE(a->waitForCount(1));
  EXPECT_EQ(a->calls(), Strings{"removed " + sibling});
}

TEST_F(MonitorDispatchTest, LostEventsReachOverlappingRegistrationsWithTheNarrowerFolder) {
  auto a = std::make_shared<RecordingDelegate>();
  auto b = std::make_shared<RecordingDelegate>();
  dispatch->addMonitorPath(home, a);
  dispatch->addMonitorPath(apps, b);
  dispatch->addMonitorPath(trash, b);
  monitor.processBatch({apps + "/Deep"}, {0x1}, {1});  // inside both of a's and b's
  ASSERT_TRUE(a->waitForCount(1));
  ASSERT_TRUE(b->waitForCount(1));
  monitor.processBatch({"/"}, {0x1}, {2});  // everywhere: each registration's own path
  ASSERT_TRUE(a->waitForCount(2));
  ASSERT_TRUE(b->waitForCount(3));
  monitor.processBatch({home + "-other"}, {0x1}, {3});  // overlaps nothing
  EXPECT_EQ(sorted(a->calls()), sorted({"lost " + apps + "/Deep", "lost " + home}));
  EXPECT_EQ(sorted(b->calls()),
            sorted({"lost " + apps + "/Deep", "lost " + apps, "lost " + trash}));
}

TEST_F(MonitorDispatchTest, ARenameWithinATreeIsReportedTwice) {
  auto a = std::make_shared<RecordingDelegate>();
  auto b = std::make_shared<RecordingDelegate>();
  dispatch->addMonitorPath(home, a);
  dispatch->addMonitorPath(home, b);
  monitor.processBatch({home + "/a", home + "/b"}, {0x800, 0x800}, {7, 8});
  const std::string move = "move " + home + "/a -> " + home + "/b";
  for (const auto& d : {a, b}) {
    ASSERT_TRUE(d->waitForCount(3));
    EXPECT_EQ(sorted(d->calls()), sorted({"moveout " + home + "/a", move, move}));
  }
}

TEST_F(MonitorDispatchTest, MovesIntoAndOutOfTheTrashAreMoveIns) {
  auto a = std::make_shared<RecordingDelegate>();
  auto t = std::make_shared<RecordingDelegate>();
  dispatch->addMonitorPath(home, a);
  dispatch->addMonitorPath(trash, t);
  const std::string inTrash = trash + "/x";
  dispatch->fileMoveOrRename(home + "/x", inTrash);
  dispatch->fileMoveOrRename(inTrash, home + "/x");
  ASSERT_TRUE(t->waitForCount(1));
  ASSERT_TRUE(a->waitForCount(1));
  EXPECT_EQ(t->calls(), Strings{"movein " + inTrash});
  EXPECT_EQ(a->calls(), Strings{"movein " + home + "/x"});
}

TEST_F(MonitorDispatchTest, ABatchIsHeldUntilItEndsAndKeepsItsOrder) {
  auto a = std::make_shared<RecordingDelegate>();
  dispatch->addMonitorPath(home, a);
  dispatch->batchBegins(4);
  dispatch->batchBegins(4);  // nested: only the outer end lets the calls go
  dispatch->fileCreated(home + "/1");
  dispatch->fileMoveOrRename(home + "/1", home + "/2");
  dispatch->fileRemove(home + "/2");
  dispatch->eventsLost(home);
  dispatch->batchEnds();
  EXPECT_FALSE(a->waitForCount(1, std::chrono::milliseconds(200)));
  dispatch->batchEnds();
  dispatch->batchEnds();  // one end too many changes nothing
  ASSERT_TRUE(a->waitForCount(5));
  // The rename is heard once for each side; the order is the events'.
  EXPECT_EQ(a->calls(), (Strings{"created " + home + "/1", "move " + home + "/1 -> " + home + "/2",
                                 "move " + home + "/1 -> " + home + "/2", "removed " + home + "/2",
                                 "lost " + home}));
  // Outside a batch calls go at once.
  dispatch->fileModify(home + "/3");
  ASSERT_TRUE(a->waitForCount(6));
}

// Hears only paths ending in ".deb".
class PackagesOnly : public RecordingDelegate {
 public:
  bool hearsPath(const std::string& path) const override {
    return path.size() > 4 && path.compare(path.size() - 4, 4, ".deb") == 0;
  }
};

TEST_F(MonitorDispatchTest, CallsADelegateDoesNotHearAreLeftOutInAndOutOfBatches) {
  auto packages = std::make_shared<PackagesOnly>();
  auto everything = std::make_shared<RecordingDelegate>();
  dispatch->addMonitorPath(home, packages);
  dispatch->addMonitorPath(home, everything);
  const auto at = [&](const char* name) { return home + "/" + name; };
  dispatch->batchBegins(7);
  dispatch->fileCreated(at("notes.txt"));
  dispatch->fileCreated(at("a.deb"));
  dispatch->fileMoveOrRename(at("b.txt"), at("b.deb"));  // heard for its target
  dispatch->fileMoveOrRename(at("c.deb"), at("c.txt"));  // and for its source
  dispatch->fileMoveOrRename(at("d.txt"), at("e.txt"));
  dispatch->eventsLost(home);  // lost events concern every delegate
  dispatch->fileRemove(at("notes.txt"));
  dispatch->batchEnds();
  dispatch->fileModify(at("x.txt"));
  dispatch->fileRemove(at("a.deb"));  // last: once heard, everything before it was
  ASSERT_TRUE(packages->waitForCount(7));
  EXPECT_EQ(packages->calls(),
            (Strings{"created " + at("a.deb"), "move " + at("b.txt") + " -> " + at("b.deb"),
                     "move " + at("b.txt") + " -> " + at("b.deb"),
                     "move " + at("c.deb") + " -> " + at("c.txt"),
                     "move " + at("c.deb") + " -> " + at("c.txt"), "lost " + home,
                     "removed " + at("a.deb")}));
  // The delegate beside it heard everything.
  ASSERT_TRUE(everything->waitForCount(12));
  EXPECT_EQ(everything->calls().front(), "created " + at("notes.txt"));
}

TEST_F(MonitorDispatchTest, EachTaskKeepsItsDelegateAlive) {
  auto a = std::make_shared<RecordingDelegate>();
  dispatch->addMonitorPath(home, a);
  std::weak_ptr<RecordingDelegate> watch = a;
  monitor.processBatch({home + "/f"}, {0x100}, {1});
  dispatch->removeMonitorPath(home, a);
  ASSERT_TRUE(a->waitForCount(1));
  a.reset();
  // The queued task held the last reference; it is released once the task has run.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!watch.expired() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_TRUE(watch.expired());
}

TEST_F(MonitorDispatchTest, EventsAreDispatchedWhileARegistrationRestartsTheStream) {
  auto a = std::make_shared<RecordingDelegate>();
  auto b = std::make_shared<RecordingDelegate>();
  dispatch->addMonitorPath(home, a);
  const std::string first = dir.mkdir("first"), second = dir.mkdir("second");
  log->startGate.close();
  // The restart's crawl can take minutes.
  std::thread adding([&] { dispatch->addMonitorPath(first, b); });
  ASSERT_TRUE(log->startGate.waitUntilHolding());
  std::thread addingToo([&] { dispatch->addMonitorPath(second, b); });
  // A batch for a registered path goes through the monitor and the dispatcher meanwhile.
  std::thread delivering([&] { monitor.processBatch({home + "/f"}, {0x100}, {1}); });
  const bool delivered = a->waitForCount(1, std::chrono::seconds(5));
  log->startGate.open();
  adding.join();
  addingToo.join();
  delivering.join();
  EXPECT_TRUE(delivered);
  EXPECT_EQ(a->calls(), Strings{"created " + home + "/f"});
  // The two additions did not undo each other.
  EXPECT_EQ(log->created.back().paths, (Strings{home, first, second}));
  EXPECT_EQ(monitor.paths(), (Strings{home, first, second}));
  ASSERT_EQ(dispatch->registrations().size(), 3u);
  EXPECT_EQ(dispatch->registrations()[2].first, second);
}

}  // namespace monitor_dispatch_test
}  // namespace vexa
