#include "vexa/monitors/WatchTrash.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <filesystem>

#include "support/AppFixtures.h"
#include "support/IsolatedHome.h"
#include "support/ScratchMount.h"
#include "vexa/monitors/WatchApplication.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace watch_trash_test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Every delegate call, in order, as "added PATH", "size N" or "trashed PATH"; main thread only.
struct Recorder : TrashWatchDelegate, ApplicationsWatchDelegate {
  void trashAddedApp(const std::string& path) override { calls.push_back("added " + path); }
  void trashUsedSizeChanged(uint64_t size) override {
    calls.push_back("size " + std::to_string(size));
  }
  void appAdded(const std::string& path) override { calls.push_back("app " + path); }
  void movedToTrash(const std::string& path) override { calls.push_back("trashed " + path); }
  std::vector<std::string> calls;
};

class WatchTrashTest : public ::testing::Test {
 protected:
  WatchTrashTest() { watch->setDelegate(recorder); }
  ~WatchTrashTest() override { watch->stopWatch(); }
  // Pumps the main loop until `call` has been made.
  bool heard(const std::string& call) {
    return RunLoop::main().runUntil([&] { return count(call) > 0; }, 10s);
  }
  size_t count(const std::string& call) const {
    return static_cast<size_t>(std::count(recorder->calls.begin(), recorder->calls.end(), call));
  }
  void start() {
    watch->startWatch(&stop);
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return !recorder->calls.empty(); }, 10s));
  }
  std::string size(const std::string& path) const {
    return "size " + std::to_string(WatchTrash::sizeOfFileWithPath(path));
  }

  test::IsolatedHome isolated;
  const test::TempDir& dir = isolated.dir;
  std::string trash = isolated.trash();
  int stop = 0;
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  // A mount table with no volumes: the machine's own do not count here.
  std::shared_ptr<WatchTrash> watch = WatchTrash::create(dir.write("mountinfo", ""));
};

TEST_F(WatchTrashTest, AnApplicationMovedInIsAddedOnceAndRenamedWithoutACallBack) {
  start();
  EXPECT_EQ(recorder->calls, std::vector<std::string>{"size 0"});
  const std::string app = test::makeBundle(dir, "home/Applications/A.app");
  fs::rename(app, trash + "/A.app");
  ASSERT_TRUE(heard("added " + trash + "/A.app"));
  ASSERT_TRUE(heard(size(trash)));
  dir.write("home/.local/share/Trash/files/note", "n");
  ASSERT_TRUE(heard(size(trash)));  // the size differs from the one at start: told again
  EXPECT_EQ(count("added " + trash + "/A.app"), 1U);
  EXPECT_EQ(watch->watchApps(), std::vector<std::string>{trash + "/A.app"});

  // A rename in the Trash replaces the entry; only sizes are told.
  const size_t calls = recorder->calls.size();
  fs::rename(trash + "/A.app", trash + "/B.app");
  ASSERT_TRUE(RunLoop::main().runUntil(
      [&] { return watch->watchApps() == std::vector<std::string>{trash + "/B.app"}; }, 10s));
  for (size_t i = calls; i < recorder->calls.size(); ++i) {
    EXPECT_EQ(recorder->calls[i].rfind("size ", 0), 0U) << recorder->calls[i];
  }
}

TEST_F(WatchTrashTest, ApplicationsAlreadyThereAreKnownWithoutACallBack) {
  test::makeBundle(dir, "home/.local/share/Trash/files/Old.app");
  test::makeDesktopEntry(dir, "home/.local/share/Trash/files/folder/viewer.desktop");
  start();
  EXPECT_EQ(recorder->calls, std::vector<std::string>{size(trash)});
  auto known = watch->watchApps();
  std::sort(known.begin(), known.end());
  EXPECT_EQ(known,
            (std::vector<std::string>{trash + "/Old.app", trash + "/folder/viewer.desktop"}));
}

TEST_F(WatchTrashTest, TheWatchedApplicationsFolderMovedIntoTheTrash) {
  // The root and its applications arrive in the Trash: the application watcher says so, and
  // the shared Trash watcher tells of each application in it.
  const std::string root = dir / "sys/applications";
  test::makeBundle(dir, "sys/applications/One.app");
  test::makeDesktopEntry(dir, "sys/applications/games/two.desktop", "Two");
  auto apps = WatchApplication::create(root);
  apps->setDelegate(recorder);
  WatchTrash::shared().setDelegate(recorder);
  apps->startWatch(&stop);
  fs::rename(root, trash + "/applications");
  ASSERT_TRUE(heard("trashed " + trash + "/applications"));
  ASSERT_TRUE(heard("added " + trash + "/applications/One.app"));
  ASSERT_TRUE(heard("added " + trash + "/applications/games/two.desktop"));
  apps->stopWatch();
}

TEST_F(WatchTrashTest, ATrashDeletedOrSwappedForALinkIsMadeAgainAndWatchedAgain) {
  std::vector<std::string> logged;
  std::mutex loggedLock;
  SystemLog::setSink([&](const std::string& line) {
    std::lock_guard lock(loggedLock);
    if (line.find("is not a folder") != std::string::npos) logged.push_back(line);
  });
  dir.write("home/.local/share/Trash/files/page", std::string(4096, 'p'));
  start();
  ASSERT_EQ(recorder->calls, std::vector<std::string>{"size 4096"});
  fs::remove_all(trash);
  ASSERT_TRUE(heard("size 0"));
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return fs::is_directory(trash); }, 10s));
  fs::rename(test::makeBundle(dir, "home/Applications/A.app"), trash + "/A.app");
  ASSERT_TRUE(heard("added " + trash + "/A.app"));
  // Heard only through a watch on the new folder.
  dir.write("home/.local/share/Trash/files/note", std::string(8192, 'n'));
  ASSERT_TRUE(heard(size(trash)));

  // A link is neither followed nor measured. Swapped in one step: a Trash merely deleted would
  // be made again at once by the watcher.
  dir.write("elsewhere/big", std::string(65536, 'e'));
  test::makeBundle(dir, "elsewhere/Linked.app");
  const std::string link = dir / "trash-link";
  fs::create_directory_symlink(dir / "elsewhere", link);
  ASSERT_EQ(::renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, trash.c_str(), RENAME_EXCHANGE), 0);
  fs::remove_all(link);  // the old folder, now under the link's name
  ASSERT_TRUE(RunLoop::main().runUntil(
      [&] {
        std::lock_guard lock(loggedLock);
        return count("size 0") >= 2 && !logged.empty();
      },
      10s));
  // Back to a folder: made again when missing, and watched.
  fs::remove(trash);
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return fs::is_directory(trash); }, 10s));
  dir.write("home/.local/share/Trash/files/note", std::string(8192, 'n'));
  ASSERT_TRUE(heard("size 8192"));
  SystemLog::setSink(nullptr);
  for (const auto& call : recorder->calls) EXPECT_EQ(call.find("Linked"), std::string::npos);
  std::lock_guard lock(loggedLock);
  EXPECT_EQ(logged.size(), 1U);
}

TEST_F(WatchTrashTest, AVolumesTrashIsWalkedMeasuredAndWatchedWhileMounted) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting needs root";
  ASSERT_TRUE(test::ScratchMount::isolate());
  auto real = WatchTrash::create();
  real->setDelegate(recorder);
  real->startWatch(&stop);
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return !recorder->calls.empty(); }, 10s));
  const uint64_t before = std::stoull(recorder->calls[0].substr(5));

  const std::string stage = dir.mkdir("stage"), volume = dir.mkdir("volume");
  test::ScratchMount tmpfs(stage);
  ASSERT_TRUE(tmpfs.ok());
  const std::string volumeTrash = stage + "/.Trash-0/files";
  fs::create_directories(volumeTrash);
  dir.write("stage/.Trash-0/files/blob", std::string(8192, 'b'));
  // Mounted again once its Trash exists: a mount the watcher hears of, and the same Trash twice.
  test::ScratchMount bound(volume, stage);
  ASSERT_TRUE(bound.ok());
  ASSERT_TRUE(heard("size " + std::to_string(before + 8192)));
  fs::rename(test::makeBundle(dir, "stage/A.app"), volumeTrash + "/A.app");
  ASSERT_TRUE(heard("added " + volumeTrash + "/A.app"));

  bound.unmount();
  tmpfs.unmount();
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return real->watchApps().empty(); }, 10s));
  real->stopWatch();
}

}  // namespace watch_trash_test
}  // namespace vexa
