#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "events/FakeWatchQueueKernel.h"
#include "support/IsolatedHome.h"
#include "vexa/events/FSWatchQueue.h"
#include "vexa/util/NotificationCenter.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace f_s_watch_queue_live_test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace watchqueue;

// Descriptors the process holds, and inotify watches over all its inotify instances.
size_t openDescriptors() {
  return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}
size_t inotifyWatches() {
  size_t count = 0;
  for (const auto& info : fs::directory_iterator("/proc/self/fdinfo")) {
    std::ifstream in(info.path());
    for (std::string line; std::getline(in, line);) {
      if (line.rfind("inotify wd:", 0) == 0) ++count;
    }
  }
  return count;
}

void touch(const std::string& path) {
  ::close(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
}

// A real queue on real files in an isolated home; call-backs are collected on the main loop.
class FSWatchQueueLiveTest : public ::testing::Test {
 protected:
  FSWatchQueueLiveTest() { queue->setDelegate(delegate); }
  bool receive(const std::string& call) {
    return RunLoop::main().runUntil([&] { return count(call) > 0; }, 10s);
  }
  size_t count(const std::string& call) const {
    const auto& calls = delegate->calls;
    return static_cast<size_t>(std::count(calls.begin(), calls.end(), call));
  }

  test::IsolatedHome home;
  std::string dir = home.dir.mkdir("watched");
  std::shared_ptr<FSWatchQueue> queue = FSWatchQueue::create();
  std::shared_ptr<test::RecordingQueueDelegate> delegate =
      std::make_shared<test::RecordingQueueDelegate>();
};

TEST_F(FSWatchQueueLiveTest, ARenamedItemIsFollowedToItsNewName) {
  touch(dir + "/a.txt");
  queue->addPath(dir + "/a.txt", kRename | kDelete);
  fs::rename(dir + "/a.txt", dir + "/b.txt");
  ASSERT_TRUE(receive("rename " + dir + "/a.txt -> " + dir + "/b.txt"));
  fs::remove(dir + "/b.txt");
  ASSERT_TRUE(receive("deleted " + dir + "/b.txt"));
  EXPECT_EQ(queue->numberOfWatchedPaths(), 0u);
}

TEST_F(FSWatchQueueLiveTest, NamesWithNewlinesAndBytesThatAreNotUtf8) {
  const std::string from = dir + "/line\nbreak\xff.app";
  const std::string to = dir + "/other\n\xfe";
  fs::create_directory(from);
  queue->addPath(from, kRename | kWrite);
  fs::rename(from, to);
  ASSERT_TRUE(receive("rename " + from + " -> " + to));
  touch(to + "/inside");
  ASSERT_TRUE(receive(std::string(WatchQueueWriteNotification) + " " + to));
}

TEST_F(FSWatchQueueLiveTest, MovedIntoTheTrashIsToldAsSuch) {
  const std::string app = home.dir.mkdir("home/Applications/Editor.app");
  queue->addPath(app, kRename | kDelete);
  fs::rename(app, home.trash() + "/Editor.app");
  ASSERT_TRUE(receive("trash " + app + " -> " + home.trash() + "/Editor.app"));
}

TEST_F(FSWatchQueueLiveTest, AFileUnlinkedWhileHeldOpenIsDeletedAtOnce) {
  const std::string file = dir + "/held";
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_GE(fd, 0);
  queue->addPath(file, kDelete);
  fs::remove(file);
  const bool received = receive("deleted " + file);
  ::close(fd);
  EXPECT_TRUE(received);
}

TEST_F(FSWatchQueueLiveTest, TenThousandCreatesAreAFewWriteCallBacks) {
  const std::string busy = home.dir.mkdir("busy");
  queue->addPath(busy, kWrite);
  queue->addPath(dir, kWrite);
  for (int i = 0; i < 10000; ++i) touch(busy + "/f" + std::to_string(i));
  // The kernel queues one instance's records in order: the sentinel's call-back comes after
  // every call-back the creates caused.
  touch(dir + "/sentinel");
  ASSERT_TRUE(receive(std::string(WatchQueueWriteNotification) + " " + dir));
  const size_t writes = count(std::string(WatchQueueWriteNotification) + " " + busy);
  EXPECT_GE(writes, 1u);
  EXPECT_LE(writes, 5u);
}

TEST(FSWatchQueueLive, AddingAndRemovingLeaksNoDescriptorAndNoWatch) {
  test::TempDir dir;
  const size_t descriptors = openDescriptors();
  {
    auto queue = FSWatchQueue::create();
    ASSERT_TRUE(queue);
    for (int i = 0; i < 10; ++i) touch(dir / std::to_string(i));
    for (int i = 0; i < 10; ++i) queue->addPath(dir / std::to_string(i));
    queue->addPath(dir.path());
    EXPECT_EQ(inotifyWatches(), 11u);
    for (int round = 0; round < 1000; ++round) {
      const std::string path = dir / std::to_string(round % 10);
      queue->removePath(path);
      queue->addPath(path, kWrite | kDelete);
    }
    queue->removeAllPaths();
    EXPECT_EQ(inotifyWatches(), 0u);
    EXPECT_EQ(queue->numberOfWatchedPaths(), 0u);
  }
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(FSWatchQueueLive, APathRemovedBeforeItIsAddedIsNotWatched) {
  test::TempDir dir;
  touch(dir / "gone");
  fs::remove(dir / "gone");
  std::vector<std::string> logged;
  SystemLog::setSink([&](const std::string& m) { logged.push_back(m); });
  auto queue = FSWatchQueue::create();
  queue->addPath(dir / "gone", kAll);
  EXPECT_EQ(queue->addPathToQueue(dir / "gone", kAll), nullptr);
  SystemLog::setSink(nullptr);
  EXPECT_EQ(queue->numberOfWatchedPaths(), 0u);
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_NE(logged[0].find("tried to add the path " + (dir / "gone")), std::string::npos);
}

TEST(FSWatchQueueLive, WithoutAnInotifyInstanceThereIsNoQueueAndTheLimitIsNamed) {
  rlimit old{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &old), 0);
  const int lowestFree = ::dup(0);
  ASSERT_GE(lowestFree, 0);
  ::close(lowestFree);
  rlimit low = old;
  low.rlim_cur = static_cast<rlim_t>(lowestFree);  // no new descriptor can be had
  std::vector<std::string> logged;
  SystemLog::setSink([&](const std::string& m) { logged.push_back(m); });
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
  auto queue = FSWatchQueue::create();
  ::setrlimit(RLIMIT_NOFILE, &old);
  SystemLog::setSink(nullptr);
  EXPECT_EQ(queue, nullptr);
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_NE(logged[0].find("fs.inotify.max_user_instances"), std::string::npos);
}

TEST(FSWatchQueueLive, AnUnmountedFileSystemRevokesAccess) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting needs root";
  test::TempDir dir;
  const std::string mnt = dir.mkdir("mnt");
  if (::mount("tmpfs", mnt.c_str(), "tmpfs", 0, "size=1m") != 0) {
    GTEST_SKIP() << "cannot mount a tmpfs here";
  }
  touch(mnt + "/file");
  auto queue = FSWatchQueue::create();
  queue->setAlwaysPostNotifications(true);
  std::vector<std::string> posted;
  const uint64_t observer = NotificationCenter::defaultCenter().addObserver(
      WatchQueueAccessRevocationNotification, queue.get(),
      [&](const Notification& n) { posted.push_back(n.userInfo.value("path", "")); });
  queue->addPath(mnt + "/file", kAccessRevocation);
  const int unmounted = ::umount2(mnt.c_str(), 0);
  EXPECT_EQ(unmounted, 0) << "a watch must not keep the file system busy";
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return !posted.empty(); }, 10s));
  NotificationCenter::defaultCenter().removeObserver(observer);
  if (!posted.empty()) {
    EXPECT_EQ(posted[0], mnt + "/file");
  }
  if (unmounted != 0) ::umount2(mnt.c_str(), MNT_DETACH);
}

}  // namespace f_s_watch_queue_live_test
}  // namespace vexa
