#include "vexa/events/FSWatchQueue.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>

#include "events/FakeWatchQueueKernel.h"
#include "events/linux/InotifyWatchQueue.h"
#include "support/IsolatedHome.h"
#include "vexa/util/MonitorString.h"
#include "vexa/util/NotificationCenter.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace f_s_watch_queue_test {

using namespace std::chrono_literals;
using namespace watchqueue;

// A queue over an engine whose kernel is a fake: the test queues records and turns the main
// loop; the delegate's calls and the notifications posted for the queue are collected.
class FSWatchQueueTest : public ::testing::Test {
 protected:
  FSWatchQueueTest() {
    auto owned = std::make_unique<test::FakeWatchQueueKernel>();
    kernel = owned.get();
    auto engineOwned = std::make_unique<InotifyWatchQueue>(std::move(owned), false);
    engine = engineOwned.get();
    queue = FSWatchQueue::create(std::move(engineOwned));
    trash = *MonitorString::userTrashPath();
    kernel->put(trash, 100, true);
    observer = NotificationCenter::defaultCenter().addObserver(
        "", queue.get(), [this](const Notification& n) {
          posted.push_back(n.name + " " + n.userInfo.value("path", ""));
        });
  }
  ~FSWatchQueueTest() override { NotificationCenter::defaultCenter().removeObserver(observer); }

  // Queues one record for the item at `path` and turns the main loop until its call-backs ran.
  void fire(const std::string& path, uint32_t mask, const std::string& name = "") {
    engine->translate({InotifyRecord{kernel->wdOf(path), mask, 0, name}});
    // Delivery is one posted task; a sentinel posted after it runs after it.
    bool done = false;
    RunLoop::main().post([&] { done = true; });
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return done; }, 10s));
  }

  test::IsolatedHome home;
  test::FakeWatchQueueKernel* kernel;
  InotifyWatchQueue* engine;
  std::shared_ptr<FSWatchQueue> queue;
  std::shared_ptr<test::RecordingQueueDelegate> delegate =
      std::make_shared<test::RecordingQueueDelegate>();
  std::string trash;
  uint64_t observer = 0;
  std::vector<std::string> posted;
};

TEST_F(FSWatchQueueTest, RenamedAndWrittenInThatOrderAndTheWatchFollows) {
  queue->setDelegate(delegate);
  kernel->put("/apps", 1, true);
  kernel->put("/apps/A.app", 2, true);
  queue->addPath("/apps/A.app");
  kernel->move("/apps/A.app", "/apps/B.app");
  engine->translate({{kernel->wdOf("/apps/B.app"), IN_MOVE_SELF, 0, ""},
                     {kernel->wdOf("/apps/B.app"), IN_CREATE, 0, "x"}});
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return posted.size() == 2; }, 10s));
  EXPECT_EQ(delegate->calls,
            (std::vector<std::string>{"rename /apps/A.app -> /apps/B.app",
                                      "WatchQueueFileWrittenToNotification /apps/A.app"}));
  EXPECT_EQ(posted, (std::vector<std::string>{"WatchQueueFileRenamedNotification /apps/A.app",
                                              "WatchQueueFileWrittenToNotification /apps/A.app"}));
  EXPECT_EQ(queue->numberOfWatchedPaths(), 1u);
  EXPECT_EQ(queue->addPathToQueue("/apps/B.app", kAll)->path(), "/apps/B.app");
  EXPECT_EQ(queue->numberOfWatchedPaths(), 1u);
  EXPECT_EQ(kernel->masks.size(), 1u);  // the one watch, handed from the old path to the new
}

TEST_F(FSWatchQueueTest, MovedIntoTheTrashIsToldWithItsPathThereAndStaysWatched) {
  queue->setDelegate(delegate);
  kernel->put("/apps", 1, true);
  kernel->put("/apps/A.app", 2, true);
  queue->addPath("/apps/A.app", kRename | kDelete);
  kernel->move("/apps/A.app", trash + "/A.app");
  fire(trash + "/A.app", IN_MOVE_SELF);
  EXPECT_EQ(delegate->calls, std::vector<std::string>{"trash /apps/A.app -> " + trash + "/A.app"});
  EXPECT_EQ(queue->numberOfWatchedPaths(), 1u);
}

TEST_F(FSWatchQueueTest, MovedElsewhereIsAPlainRenameNotification) {
  queue->setDelegate(delegate);
  kernel->put("/apps", 1, true);
  kernel->put("/apps/A.app", 2, true);
  queue->addPath("/apps/A.app");
  kernel->move("/apps/A.app", "/elsewhere/A.app");
  fire("/elsewhere/A.app", IN_MOVE_SELF);
  EXPECT_EQ(delegate->calls,
            std::vector<std::string>{"WatchQueueFileRenamedNotification /apps/A.app"});
}

TEST_F(FSWatchQueueTest, DeletedIsToldAndThePathIsNoLongerWatched) {
  queue->setDelegate(delegate);
  kernel->put("/w/f", 2);
  kernel->put("/w/g", 3);
  queue->addPath("/w/f");
  queue->addPath("/w/g");
  const auto entry = queue->addPathToQueue("/w/f", kDelete);
  fire("/w/f", IN_DELETE_SELF);
  EXPECT_EQ(delegate->calls, std::vector<std::string>{"deleted /w/f"});
  EXPECT_EQ(queue->numberOfWatchedPaths(), 1u);
  EXPECT_EQ(entry->watchedFD(), -1);
}

struct PostCase {
  const char* label;
  bool delegate;
  bool alwaysPost;
  bool posted;
};
void PrintTo(const PostCase& c, std::ostream* os) { *os << c.label; }

class FSWatchQueuePosting : public FSWatchQueueTest,
                            public ::testing::WithParamInterface<PostCase> {};

TEST_P(FSWatchQueuePosting, NotificationsPostWithADelegateOrWhenAlwaysAsked) {
  if (GetParam().delegate) queue->setDelegate(delegate);
  queue->setAlwaysPostNotifications(GetParam().alwaysPost);
  kernel->put("/w/f", 2);
  queue->addPath("/w/f");
  fire("/w/f", IN_MODIFY);
  EXPECT_EQ(posted.size(), GetParam().posted ? 1u : 0u);
  EXPECT_EQ(delegate->calls.size(), GetParam().delegate ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Rules, FSWatchQueuePosting,
                         ::testing::Values(PostCase{"NoDelegate", false, false, false},
                                           PostCase{"NoDelegateAlways", false, true, true},
                                           PostCase{"Delegate", true, false, true},
                                           PostCase{"DelegateAlways", true, true, true}),
                         [](const auto& test) { return std::string(test.param.label); });

TEST_F(FSWatchQueueTest, AddingAgainKeepsTheFlagsButAddPathToQueueWidensThem) {
  kernel->put("/w/f", 2);
  queue->addPath("/w/f", kRename | kDelete);
  queue->addPath("/w/f", kWrite);
  EXPECT_EQ(queue->addPathToQueue("/w/f", kDelete)->subscriptionFlags(), kRename | kDelete);
  EXPECT_EQ(queue->addPathToQueue("/w/f", kWrite)->subscriptionFlags(), kRename | kDelete | kWrite);
  EXPECT_EQ(queue->numberOfWatchedPaths(), 1u);
}

TEST_F(FSWatchQueueTest, APathThatCannotBeWatchedIsLoggedAndNotKept) {
  std::vector<std::string> logged;
  SystemLog::setSink([&](const std::string& m) { logged.push_back(m); });
  queue->addPath("/w/missing");
  kernel->put("/w/f", 2);
  kernel->failWith = ENOSPC;
  queue->addPath("/w/f", kWrite);
  queue->addPath("");
  SystemLog::setSink(nullptr);
  EXPECT_EQ(queue->numberOfWatchedPaths(), 0u);
  ASSERT_EQ(logged.size(), 3u);
  EXPECT_EQ(logged[0],
            "WatchQueue tried to add the path /w/missing to watchedPathEntries, but the "
            "VDKQueuePathEntry was nil. \nIt's possible that the host process has hit its max "
            "open file descriptors limit.");
  EXPECT_NE(logged[1].find("fs.inotify.max_user_watches"), std::string::npos);
  EXPECT_NE(logged[2].find("but the WatchQueuePathEntry was nil"), std::string::npos);
}

TEST_F(FSWatchQueueTest, FilePathForFileDescrLooksTheItemUpByIdentity) {
  kernel->put("/w", 1, true);
  kernel->put("/w/a", 2);
  const auto entry = queue->addPathToQueue("/w/a", kAll);
  kernel->move("/w/a", "/w/sub/b");
  kernel->put("/w/sub", 3, true);
  EXPECT_EQ(queue->filePathForFileDescr(entry->watchedFD(), "/w", false), std::nullopt);
  EXPECT_EQ(queue->filePathForFileDescr(entry->watchedFD(), "/w", true), "/w/sub/b");
  EXPECT_EQ(queue->filePathForFileDescr(-1, "/w", true), std::nullopt);
}

TEST_F(FSWatchQueueTest, ACallBackWaitingWhenTheQueueGoesIsDropped) {
  queue->setDelegate(delegate);
  kernel->put("/w/f", 2);
  queue->addPath("/w/f");
  engine->translate({{kernel->wdOf("/w/f"), IN_MODIFY, 0, ""}});
  queue.reset();
  bool done = false;
  RunLoop::main().post([&] { done = true; });
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return done; }, 10s));
  EXPECT_TRUE(delegate->calls.empty());
}

}  // namespace f_s_watch_queue_test
}  // namespace vexa
