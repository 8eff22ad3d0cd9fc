#include "events/linux/InotifyWatcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <set>

#include "support/TempDir.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace inotify_watcher_test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using fsevent::kItemCreated;
using fsevent::kItemModified;
using fsevent::kItemRemoved;
using fsevent::kItemRenamed;

// Subscribes a watcher to a temporary tree with a short latency and collects what the main loop
// receives.
class InotifyWatcherTest : public ::testing::Test {
 protected:
  void subscribe(std::vector<std::string> roots, uint64_t since = kEventIdSinceNow) {
    token = watcher->subscribe(roots, since, 0.05, RunLoop::main(),
                               [this](const std::vector<FsEvent>& batch) {
                                 ++batches;
                                 events.insert(events.end(), batch.begin(), batch.end());
                               });
    ASSERT_TRUE(watcher->waitUntilSettled(10s));
  }
  // Turns the main loop until `done` holds for the events received.
  bool receive(const std::function<bool()>& done) { return RunLoop::main().runUntil(done, 10s); }
  bool receivePath(const std::string& path, uint32_t flag) {
    return receive([&] { return find(path, flag) != nullptr; });
  }
  const FsEvent* find(const std::string& path, uint32_t flag) const {
    for (const auto& e : events) {
      if (e.path == path && (e.flags & flag)) return &e;
    }
    return nullptr;
  }
  // Makes a file in `folder` (a watched one) and waits for its creation: the kernel queues records
  // in order, so whatever the changes before it caused has been received by then.
  bool receiveEverythingBefore(const std::string& folder) {
    const std::string sentinel = folder + "/sentinel-" + std::to_string(++sentinels);
    std::ofstream{sentinel};
    return receivePath(sentinel, kItemCreated);
  }
  size_t countCreated(const std::string& prefix) const {
    return static_cast<size_t>(std::count_if(events.begin(), events.end(), [&](const FsEvent& e) {
      return (e.flags & kItemCreated) && e.path.rfind(prefix, 0) == 0;
    }));
  }

  test::TempDir dir;
  std::shared_ptr<InotifyWatcher> watcher = InotifyWatcher::create();
  uint64_t token = 0;
  int sentinels = 0;
  int batches = 0;
  std::vector<FsEvent> events;
};

TEST_F(InotifyWatcherTest, CreateModifyRemoveWithStrictlyIncreasingIdentifiers) {
  subscribe({dir.path()});
  const std::string file = dir.write("a.txt", "one");
  ASSERT_TRUE(receivePath(file, kItemCreated));
  std::ofstream(file, std::ios::app) << "two";
  ASSERT_TRUE(receivePath(file, kItemModified));
  fs::remove(file);
  ASSERT_TRUE(receivePath(file, kItemRemoved));
  for (size_t i = 1; i < events.size(); ++i) EXPECT_GT(events[i].id, events[i - 1].id);
  EXPECT_EQ(watcher->latestEventId(), events.back().id);
  EXPECT_TRUE(find(file, fsevent::kItemIsFile));
}

TEST_F(InotifyWatcherTest, ARenamedFolderIsTwoEventsInARowAndStaysWatchedUnderItsNewName) {
  dir.mkdir("tree/deep/deeper");
  subscribe({dir / "tree"});
  fs::rename(dir / "tree/deep", dir / "tree/moved");
  ASSERT_TRUE(receivePath(dir / "tree/moved", kItemRenamed));
  const FsEvent* a = find(dir / "tree/deep", kItemRenamed);
  const FsEvent* b = find(dir / "tree/moved", kItemRenamed);
  ASSERT_TRUE(a && b);
  EXPECT_EQ(b->id, a->id + 1);
  const std::string file = dir.write("tree/moved/deeper/f", "");
  ASSERT_TRUE(receivePath(file, kItemCreated));
}

TEST_F(InotifyWatcherTest, MovesOutAndInAcrossTheTreesEdge) {
  dir.mkdir("watched");
  dir.mkdir("outside/incoming/nested");
  const std::string leaving = dir.mkdir("watched/leaving");
  subscribe({dir / "watched"});

  fs::rename(leaving, dir / "outside/left");
  ASSERT_TRUE(receivePath(leaving, kItemRenamed));
  EXPECT_EQ(std::count_if(events.begin(), events.end(),
                          [](const FsEvent& e) { return e.flags & kItemRenamed; }),
            1);

  fs::rename(dir / "outside/incoming", dir / "watched/incoming");
  ASSERT_TRUE(receivePath(dir / "watched/incoming", kItemRenamed));
  // The moved-in subtree is watched; the moved-out one is not.
  dir.write("outside/left/ignored", "");
  const std::string file = dir.write("watched/incoming/nested/seen", "");
  ASSERT_TRUE(receivePath(file, kItemCreated));
  EXPECT_FALSE(find(dir / "outside/left/ignored", kItemCreated));
}

TEST_F(InotifyWatcherTest, EveryFileMadeInANewFolderIsReportedOnce) {
  subscribe({dir.path()});
  // Made as fast as possible: most files exist before the new folder's watch does.
  fs::create_directories(dir / "new/a/b/c");
  for (int i = 0; i < 100; ++i) dir.write("new/a/b/c/f" + std::to_string(i), "");
  for (int i = 0; i < 100; ++i) dir.write("new/g" + std::to_string(i), "");
  ASSERT_TRUE(receive([&] { return countCreated(dir / "new/") >= 203; }));
  ASSERT_TRUE(receiveEverythingBefore(dir.path()));  // with any duplicate
  std::multiset<std::string> created;
  for (const auto& e : events) {
    if (e.flags & kItemCreated) created.insert(e.path);
  }
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(created.count(dir / "new/a/b/c/f" + std::to_string(i)), 1u) << i;
    EXPECT_EQ(created.count(dir / "new/g" + std::to_string(i)), 1u) << i;
  }
  EXPECT_EQ(created.count(dir / "new/a/b"), 1u);
}

TEST_F(InotifyWatcherTest, OverlappingTreesShareTheirWatches) {
  dir.mkdir("home/Applications/X.app/Contents");
  dir.mkdir("home/Documents");
  subscribe({dir / "home", dir / "home/Applications"});
  EXPECT_EQ(watcher->watchCount(), 5u);  // home, Applications, X.app, Contents, Documents
  const std::string file = dir.write("home/Applications/new.desktop", "");
  ASSERT_TRUE(receivePath(file, kItemCreated));
  ASSERT_TRUE(receiveEverythingBefore(dir / "home/Applications"));
  EXPECT_EQ(countCreated(file), 1u);  // reported once by the stream
}

TEST_F(InotifyWatcherTest, ARestartedSubscriptionLosesNothingAndKeepsCounting) {
  subscribe({dir.path()});
  const std::string first = dir.write("first", "");
  ASSERT_TRUE(receivePath(first, kItemCreated));
  const uint64_t handled = events.back().id;
  watcher->unsubscribe(token);
  // Between two subscriptions: still seen, and handed to the next subscriber.
  const std::string between = dir.write("between", "");
  subscribe({dir.path(), dir.mkdir("second-root")}, handled);
  ASSERT_TRUE(receivePath(between, kItemCreated));
  EXPECT_GT(find(between, kItemCreated)->id, handled);
  EXPECT_EQ(countCreated(first), 1u);  // not delivered again
}

TEST_F(InotifyWatcherTest, IdentifiersContinueAfterTheStoredOne) {
  subscribe({dir.path()}, 5000);
  const std::string file = dir.write("f", "");
  ASSERT_TRUE(receivePath(file, kItemCreated));
  EXPECT_EQ(events.front().id, 5001u);
}

TEST_F(InotifyWatcherTest, DroppedTreesStopReporting) {
  const std::string a = dir.mkdir("a"), b = dir.mkdir("b");
  subscribe({a, b});
  EXPECT_EQ(watcher->watchCount(), 2u);
  subscribe({b});
  EXPECT_EQ(watcher->watchCount(), 1u);
  dir.write("a/ignored", "");
  const std::string seen = dir.write("b/seen", "");
  ASSERT_TRUE(receivePath(seen, kItemCreated));
  EXPECT_FALSE(find(dir / "a/ignored", kItemCreated));
}

TEST_F(InotifyWatcherTest, ARootThatVanishesIsReportedAndTheOtherTreesAreStillServed) {
  const std::string root = dir.mkdir("root"), other = dir.mkdir("other");
  subscribe({root, other});
  fs::remove_all(root);
  ASSERT_TRUE(receivePath(root, fsevent::kRootChanged));
  dir.write("root/again", "");  // made anew: not watched again
  ASSERT_TRUE(receiveEverythingBefore(other));
  EXPECT_FALSE(find(dir / "root/again", kItemCreated));
}

TEST_F(InotifyWatcherTest, ModificationsOfOneFileAreCoalescedWithinABatch) {
  const std::string file = dir.write("log", "");
  subscribe({dir.path()});
  {
    std::ofstream out(file, std::ios::app);
    for (int i = 0; i < 200; ++i) out << "line\n" << std::flush;
  }
  ASSERT_TRUE(receivePath(file, kItemModified));
  ASSERT_TRUE(receiveEverythingBefore(dir.path()));
  const auto modifications = std::count_if(
      events.begin(), events.end(), [](const FsEvent& e) { return e.flags & kItemModified; });
  EXPECT_LT(modifications, 20);
}

}  // namespace inotify_watcher_test
}  // namespace vexa
