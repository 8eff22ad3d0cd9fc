#include "vexa/monitors/MonitorTrash.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "monitors/MonitorFixture.h"
#include "support/ScratchMount.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace monitor_trash_test {

namespace fs = std::filesystem;

// The Trash monitor beside the application monitor of the fixture, over a mount table with no
// volumes: the machine's own do not count here.
class MonitorTrashTest : public test::MonitorFixture {
 protected:
  ~MonitorTrashTest() override { trashMonitor->stopMonotor(); }

  // Waits for a "TrashSizeChange" with `used`, passing over earlier sizes.
  static bool receiveUsed(test::RawClient& host, uint64_t used) {
    for (json message = receive(host); message.is_object(); message = receive(host)) {
      if (message["parms"]["Used"] == used) return true;
    }
    return false;
  }

  std::shared_ptr<MonitorTrash> trashMonitor =
      MonitorTrash::create(*dispatch, *server, dir.write("mountinfo", ""));
};

TEST_F(MonitorTrashTest, AFullTrashIsReportedAtStartAndEachChangeAfter) {
  auto host = connectHost();
  dir.write("home/.local/share/Trash/files/page", std::string(4096, 'p'));
  trashMonitor->startMonitor();
  json message = receive(*host);
  EXPECT_EQ(message["name"], "TrashSizeChange");
  EXPECT_EQ(message["parms"]["Used"], 4096U);
  EXPECT_TRUE(message["parms"]["Used"].is_number_unsigned());

  fs::remove(trash() + "/page");
  trashMonitor->fileRemove(trash() + "/page");
  EXPECT_EQ(receive(*host)["parms"]["Used"], 0U);
  trashMonitor->fileModify(dir / "home/elsewhere");  // not under the Trash: not measured
  EXPECT_FALSE(host->receive(200));
}

TEST_F(MonitorTrashTest, AnEmptyTrashSendsNothingAndMissingFoldersAreMade) {
  fs::remove_all(dir / "home/.local/share/Trash");
  auto host = connectHost();
  trashMonitor->startMonitor();
  for (const char* folder : {"files", "info"}) {
    const auto status = fs::status(dir / "home/.local/share/Trash/" + folder);
    EXPECT_TRUE(fs::is_directory(status)) << folder;
    EXPECT_EQ(status.permissions() & fs::perms::all, fs::perms::owner_all) << folder;
  }
  ASSERT_EQ(dispatch->registrations().size(), 1U);
  EXPECT_EQ(dispatch->registrations()[0].first, trash());
  EXPECT_FALSE(host->receive(200));
}

TEST_F(MonitorTrashTest, WithoutAHostTheSizeIsStillKept) {
  dir.write("home/.local/share/Trash/files/page", std::string(4096, 'p'));
  trashMonitor->sendChangedMessage();
  EXPECT_EQ(trashMonitor->preUsedSize(), 4096U);
}

TEST_F(MonitorTrashTest, ABurstOfEventsCostsAtMostTwoMeasurementsMore) {
  auto host = connectHost();
  trashMonitor->startMonitor();
  for (int i = 0; i < 200; ++i) {
    dir.write("home/.local/share/Trash/files/f" + std::to_string(i), std::string(4096, 'x'));
    trashMonitor->fileMoveIn(trash() + "/f" + std::to_string(i));
  }
  // Every message carries a larger size; the last one the whole Trash.
  uint64_t last = 0;
  int messages = 0;
  while (last != 200U * 4096U) {
    json message = receive(*host);
    ASSERT_EQ(message["name"], "TrashSizeChange");
    ASSERT_GT(message["parms"]["Used"].get<uint64_t>(), last);
    last = message["parms"]["Used"].get<uint64_t>();
    ++messages;
  }
  EXPECT_LT(messages, 200);
}

TEST_F(MonitorTrashTest, AVolumesTrashCountsWhileMountedAndDropsOutWhenUnmounted) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting needs root";
  ASSERT_TRUE(test::ScratchMount::isolate());
  auto host = connectHost();
  dir.write("home/.local/share/Trash/files/page", std::string(4096, 'p'));
  auto real = MonitorTrash::create(*dispatch, *server);
  real->startMonitor();
  // The machine's own volumes may hold Trashes of their own.
  const json first = receive(*host);
  ASSERT_EQ(first["name"], "TrashSizeChange");
  const uint64_t before = first["parms"]["Used"].get<uint64_t>();

  const std::string stage = dir.mkdir("stage"), volume = dir.mkdir("volume");
  test::ScratchMount tmpfs(stage);
  ASSERT_TRUE(tmpfs.ok());
  const std::string volumeTrash = stage + "/.Trash-0/files";
  fs::create_directories(volumeTrash);
  dir.write("stage/.Trash-0/files/blob", std::string(8192, 'b'));
  // Mounted again once its Trash exists: a mount the monitor hears of, and the same Trash twice.
  test::ScratchMount bound(volume, stage);
  ASSERT_TRUE(bound.ok());
  ASSERT_TRUE(receiveUsed(*host, before + 8192));

  bound.unmount();
  tmpfs.unmount();
  ASSERT_TRUE(receiveUsed(*host, before));
  real->stopMonotor();
  EXPECT_EQ(dispatch->registrations().size(), 0U);
}

TEST_F(MonitorTrashTest, ATrashDeletedIsMadeAgainAndOneReplacedByALinkIsNotFollowed) {
  std::vector<std::string> logged;
  std::mutex loggedLock;
  SystemLog::setSink([&](const std::string& line) {
    std::lock_guard lock(loggedLock);
    logged.push_back(line);
  });
  auto host = connectHost();
  dir.write("home/.local/share/Trash/files/page", std::string(4096, 'p'));
  trashMonitor->startMonitor();
  ASSERT_TRUE(receiveUsed(*host, 4096));

  fs::remove_all(trash());
  trashMonitor->fileRemove(trash());
  ASSERT_TRUE(receiveUsed(*host, 0));
  EXPECT_TRUE(fs::is_directory(fs::symlink_status(trash())));
  dir.write("home/.local/share/Trash/files/again", std::string(8192, 'a'));
  trashMonitor->fileMoveIn(trash() + "/again");
  ASSERT_TRUE(receiveUsed(*host, 8192));

  // A link to a full folder: the Trash counts nothing, and the link is told once.
  dir.write("elsewhere/big", std::string(65536, 'e'));
  fs::remove_all(trash());
  fs::create_directory_symlink(dir / "elsewhere", trash());
  trashMonitor->fileRemove(trash());
  ASSERT_TRUE(receiveUsed(*host, 0));
  trashMonitor->fileModify(trash() + "/big");
  trashMonitor->sendChangedMessage();
  EXPECT_FALSE(host->receive(200));
  SystemLog::setSink(nullptr);
  std::lock_guard lock(loggedLock);
  EXPECT_EQ(std::count_if(logged.begin(), logged.end(),
                          [](const std::string& line) {
                            return line.find("is not a folder") != std::string::npos;
                          }),
            1);
}

}  // namespace monitor_trash_test
}  // namespace vexa
