#include "vexa/monitors/MonitorTrash.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "support/FakeEventStream.h"
#include "support/IsolatedHome.h"
#include "support/RawClient.h"
#include "support/ScratchMount.h"
#include "support/Signal.h"
#include "vexa/events/FileSystemMonitor.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/messaging/Message.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/Preferences.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace monitor_trash_test {

namespace fs = std::filesystem;
using nlohmann::json;

// A monitor over an isolated home whose event stream is a fake, with a real server and host.
class MonitorTrashTest : public ::testing::Test {
 protected:
  MonitorTrashTest()
      : log(std::make_shared<test::FakeStreamLog>()),
        prefs(isolated.dir / "prefs.json"),
        fsMonitor(std::make_unique<test::FakeEventStreamFactory>(log), prefs),
        dispatch(MonitorDispatch::create(fsMonitor, DispatchQueue::global())),
        server(XSocketServer::create("127.0.0.1", 0)),
        monitor(MonitorTrash::create(*dispatch, *server, noMounts)) {}
  ~MonitorTrashTest() override {
    monitor->stopMonotor();
    if (acceptor.joinable()) {
      server->stopListen();
      acceptor.join();
    }
  }
  std::unique_ptr<test::RawClient> connectHost() {
    EXPECT_TRUE(server->startListen());
    acceptor = std::thread([this] { server->acceptConnect(); });
    auto host = std::make_unique<test::RawClient>(server->port());
    EXPECT_TRUE(host->receive());  // the greeting
    host->send(Message("ConnectCommand", {{"Identity", XSocketServer::kHostIdentity}}));
    EXPECT_TRUE(test::eventually([&] {
      return server->getConnetClientByIdentity(XSocketServer::kHostIdentity) != nullptr;
    }));
    return host;
  }
  static json receive(test::RawClient& host, int timeoutMs = 10000) {
    auto text = host.receive(timeoutMs);
    return text ? json::parse(*text) : json();
  }

  // Waits for a "TrashSizeChange" with `used`, passing over earlier sizes.
  static bool receiveUsed(test::RawClient& host, uint64_t used) {
    for (json message = receive(host); message.is_object(); message = receive(host)) {
      if (message["parms"]["Used"] == used) return true;
    }
    return false;
  }

  test::IsolatedHome isolated;
  // A mount table with no volumes: the machine's own do not count here.
  const std::string noMounts = isolated.dir.write("mountinfo", "");
  std::shared_ptr<test::FakeStreamLog> log;
  Preferences prefs;
  FileSystemMonitor fsMonitor;
  std::shared_ptr<MonitorDispatch> dispatch;
  std::shared_ptr<XSocketServer> server;
  std::shared_ptr<MonitorTrash> monitor;
  std::thread acceptor;
};

TEST_F(MonitorTrashTest, AFullTrashIsReportedAtStartAndEachChangeAfter) {
  auto host = connectHost();
  isolated.dir.write("home/.local/share/Trash/files/page", std::string(4096, 'p'));
  monitor->startMonitor();
  json message = receive(*host);
  EXPECT_EQ(message["name"], "TrashSizeChange");
  EXPECT_EQ(message["parms"]["Used"], 4096U);
  EXPECT_TRUE(message["parms"]["Used"].is_number_unsigned());

  fs::remove(isolated.trash() + "/page");
  monitor->fileRemove(isolated.trash() + "/page");
  EXPECT_EQ(receive(*host)["parms"]["Used"], 0U);
  monitor->fileModify(isolated.dir / "home/elsewhere");  // not under the Trash: not measured
  EXPECT_FALSE(host->receive(200));
}

TEST_F(MonitorTrashTest, AnEmptyTrashSendsNothingAndMissingFoldersAreMade) {
  fs::remove_all(isolated.dir / "home/.local/share/Trash");
  auto host = connectHost();
  monitor->startMonitor();
  for (const char* folder : {"files", "info"}) {
    const auto status = fs::status(isolated.dir / "home/.local/share/Trash/" + folder);
    EXPECT_TRUE(fs::is_directory(status)) << folder;
    EXPECT_EQ(status.permissions() & fs::perms::all, fs::perms::owner_all) << folder;
  }
  ASSERT_EQ(dispatch->registrations().size(), 1U);
  EXPECT_EQ(dispatch->registrations()[0].first, isolated.trash());
  EXPECT_FALSE(host->receive(200));
}

TEST_F(MonitorTrashTest, WithoutAHostTheSizeIsStillKept) {
  isolated.dir.write("home/.local/share/Trash/files/page", std::string(4096, 'p'));
  monitor->sendChangedMessage();
  EXPECT_EQ(monitor->preUsedSize(), 4096U);
}

TEST_F(MonitorTrashTest, ABurstOfEventsCostsAtMostTwoMeasurementsMore) {
  auto host = connectHost();
  monitor->startMonitor();
  for (int i = 0; i < 200; ++i) {
    isolated.dir.write("home/.local/share/Trash/files/f" + std::to_string(i),
                       std::string(4096, 'x'));
    monitor->fileMoveIn(isolated.trash() + "/f" + std::to_string(i));
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
  isolated.dir.write("home/.local/share/Trash/files/page", std::string(4096, 'p'));
  auto real = MonitorTrash::create(*dispatch, *server);
  real->startMonitor();
  // The machine's own volumes may hold Trashes of their own.
  const json first = receive(*host);
  ASSERT_EQ(first["name"], "TrashSizeChange");
  const uint64_t before = first["parms"]["Used"].get<uint64_t>();

  const std::string stage = isolated.dir.mkdir("stage"), volume = isolated.dir.mkdir("volume");
  test::ScratchMount tmpfs(stage);
  ASSERT_TRUE(tmpfs.ok());
  const std::string volumeTrash = stage + "/.Trash-0/files";
  fs::create_directories(volumeTrash);
  isolated.dir.write("stage/.Trash-0/files/blob", std::string(8192, 'b'));
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
  isolated.dir.write("home/.local/share/Trash/files/page", std::string(4096, 'p'));
  monitor->startMonitor();
  ASSERT_TRUE(receiveUsed(*host, 4096));

  fs::remove_all(isolated.trash());
  monitor->fileRemove(isolated.trash());
  ASSERT_TRUE(receiveUsed(*host, 0));
  EXPECT_TRUE(fs::is_directory(fs::symlink_status(isolated.trash())));
  isolated.dir.write("home/.local/share/Trash/files/again", std::string(8192, 'a'));
  monitor->fileMoveIn(isolated.trash() + "/again");
  ASSERT_TRUE(receiveUsed(*host, 8192));

  // A link to a full folder: the Trash counts nothing, and the link is told once.
  isolated.dir.write("elsewhere/big", std::string(65536, 'e'));
  fs::remove_all(isolated.trash());
  fs::create_directory_symlink(isolated.dir / "elsewhere", isolated.trash());
  monitor->fileRemove(isolated.trash());
  ASSERT_TRUE(receiveUsed(*host, 0));
  monitor->fileModify(isolated.trash() + "/big");
  monitor->sendChangedMessage();
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
