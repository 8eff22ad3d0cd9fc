// The real vexa-agent watching a home folder of its own, and the real vexa-host printing what
// the host application hears about applications.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <thread>

#include <nlohmann/json.hpp>

#include "support/AppFixtures.h"
#include "support/ChildProcess.h"
#include "support/HostMessages.h"
#include "support/IsolatedHome.h"
#include "support/Signal.h"

namespace vexa {
namespace agent_applications_test {

namespace fs = std::filesystem;
using nlohmann::json;
using test::ChildProcess;

class AgentApplicationsTest : public ::testing::Test {
 protected:
  AgentApplicationsTest() : dir(isolated.dir) {}

  // Starts the agent and answers its port.
  std::string startAgent() {
    agent = std::make_unique<ChildProcess>(
        std::vector<std::string>{VEXA_AGENT_PATH, "--port", "0", "--cache", cache()});
    auto listening = agent->readLine(std::chrono::seconds(30));
    EXPECT_TRUE(listening);
    if (!listening) return "0";
    return listening->substr(listening->rfind(':') + 1);
  }
  std::unique_ptr<ChildProcess> startHost(const std::string& port) {
    auto host = std::make_unique<ChildProcess>(
        std::vector<std::string>{VEXA_HOST_PATH, "--port", port, "--install-path", dir / "home"});
    auto greeting = host->readLine();
    EXPECT_TRUE(greeting && greeting->find("ServerConnectCommand") != std::string::npos);
    return host;
  }
  // The Trash's size reports come in between; they are passed over.
  static json nextMessage(ChildProcess& host, int seconds = 15) {
    return test::nextHostMessage(
        host, [](const std::string& name) { return name != "TrashSizeChange"; }, seconds);
  }
  std::string cache() const { return dir / "cache"; }
  std::map<std::string, json> cached() const {
    return test::readAppCache(cache() + "/appcache.dat");
  }
  void stopAgent() {
    agent->signal(SIGTERM);
    EXPECT_EQ(agent->waitExit(), 0);
  }

  test::IsolatedHome isolated;
  const test::TempDir& dir;
  std::unique_ptr<ChildProcess> agent;
};

TEST_F(AgentApplicationsTest, InstallsTrashingsAndDeletionsReachTheHost) {
  const std::string port = startAgent();
  auto host = startHost(port);

  // Made under the install path: announced once each, with the record's fields.
  const std::string editor = test::makeBundle(dir, "home/Applications/Editor.app");
  json message = nextMessage(*host);
  EXPECT_EQ(message["name"], "InstallCommand");
  EXPECT_EQ(message["parms"]["AppFile"]["appPath"], editor);
  EXPECT_EQ(message["parms"]["AppFile"]["appBundleIdentifer"], "com.example.Editor");
  EXPECT_EQ(message["parms"]["AppFile"]["appDomain"], "com.example");
  EXPECT_EQ(message["parms"]["AppFile"]["executableArchs"], json::array({0x01000007}));

  const std::string viewer = test::makeDesktopEntry(
      dir, "home/.local/share/applications/org.example.Viewer.desktop", "Viewer");
  message = nextMessage(*host);
  EXPECT_EQ(message["name"], "InstallCommand");
  EXPECT_EQ(message["parms"]["AppFile"]["appPath"], viewer);
  EXPECT_EQ(message["parms"]["AppFile"]["appBundleIdentifer"], "org.example.Viewer");

  // Outside every install path (the system applications folder): recorded, not announced.
  test::BundleRecipe other;
  other.identifier = "com.example.Other";
  const std::string outside = test::makeBundle(dir, "sys/applications/Other.app", other);

  // Into the Trash: uninstalled at once.
  test::BundleRecipe doomed;
  doomed.identifier = "com.example.Doomed";
  const std::string doomedPath = test::makeBundle(dir, "home/Applications/Doomed.app", doomed);
  message = nextMessage(*host);
  EXPECT_EQ(message["name"], "InstallCommand");
  EXPECT_EQ(message["parms"]["AppFile"]["appPath"], doomedPath);  // not Other.app
  const std::string inTrash = dir / "home/.local/share/Trash/files/Editor.app";
  fs::rename(editor, inTrash);
  message = nextMessage(*host);
  EXPECT_EQ(message["name"], "UninstallCommand");
  EXPECT_EQ(message["parms"]["AppFile"]["appPath"], inTrash);
  EXPECT_EQ(message["parms"]["AppFile"]["needForceRemove"], true);
  EXPECT_TRUE(
      test::eventually([&] { return cached().count(inTrash) == 1; }, std::chrono::seconds(10)));
  EXPECT_TRUE(cached().count(outside));

  // Deleted for good: marked after the delay, and the next host to connect hears of it.
  fs::remove_all(doomedPath);
  ASSERT_TRUE(test::eventually(
      [&] {
        auto records = cached();
        return records.count(doomedPath) && records[doomedPath]["needForceRemove"] == true;
      },
      std::chrono::seconds(20)));
  auto later = startHost(port);
  message = nextMessage(*later);
  EXPECT_EQ(message["name"], "RemoveCommand");
  std::set<std::string> reported;
  for (const auto& app : message["parms"]["AppFiles"]) reported.insert(app["appPath"]);
  EXPECT_EQ(reported, (std::set<std::string>{inTrash, doomedPath}));

  // The host's confirmation clears the deleted one; the cache follows.
  later->write(
      json{{"name", "ForceRemoveSuccessCommand"}, {"parms", {{"Path", {doomedPath}}}}}.dump() +
      "\n");
  EXPECT_TRUE(
      test::eventually([&] { return cached().count(doomedPath) == 0; }, std::chrono::seconds(10)));

  // A restarted agent reads its cache: the trashed one still waits for the host.
  stopAgent();
  const std::string newPort = startAgent();
  auto afterRestart = startHost(newPort);
  message = nextMessage(*afterRestart);
  EXPECT_EQ(message["name"], "RemoveCommand");
  ASSERT_EQ(message["parms"]["AppFiles"].size(), 1u);
  EXPECT_EQ(message["parms"]["AppFiles"][0]["appPath"], inTrash);
  EXPECT_TRUE(cached().count(outside));
  EXPECT_TRUE(cached().count(viewer));
  stopAgent();
}

}  // namespace agent_applications_test
}  // namespace vexa

namespace vexa {
namespace agent_applications_test {

// Killed outright while it rewrites its cache for every uninstall, the agent leaves a cache
// that reads back whole (the state before some write, or after it), and a new agent starts on
// it. A stop by SIGTERM lets the write under way finish and writes the final state.
TEST_F(AgentApplicationsTest, ACacheSurvivesAKillInTheMiddleOfWrites) {
  const std::string port = startAgent();
  auto host = startHost(port);
  const int count = 200;
  const std::string trash = dir / "home/.local/share/Trash/files";
  fs::create_directories(trash);
  for (int i = 0; i < count; ++i) {
    const std::string name = "org.example.App" + std::to_string(i) + ".desktop";
    const std::string entry = test::makeDesktopEntry(dir, "home/.local/share/applications/" + name,
                                                     "App " + std::to_string(i));
    fs::rename(entry, trash + "/" + name);  // each one rewrites the cache
  }
  // Killed once the host has heard of a good part of them.
  int uninstalls = 0;
  while (uninstalls < count / 4) {
    json message = nextMessage(*host);
    ASSERT_TRUE(message.is_object()) << "after " << uninstalls << " uninstalls";
    if (message["name"] == "UninstallCommand") ++uninstalls;
  }
  agent->signal(SIGKILL);
  agent->waitExit();
  const auto afterKill = cached();
  EXPECT_FALSE(afterKill.empty());
  for (const auto& [path, record] : afterKill) EXPECT_TRUE(record.is_object()) << path;

  // A new agent reads it and serves; stopped properly, it leaves everything it knows.
  startAgent();
  stopAgent();
  const auto afterStop = cached();
  EXPECT_GE(afterStop.size(), afterKill.size());
  for (const auto& [path, record] : afterStop) EXPECT_TRUE(record.is_object()) << path;
}

}  // namespace agent_applications_test
}  // namespace vexa

namespace vexa {
namespace agent_applications_test {

// A package manager's install: the entry is written under a temporary name and renamed into
// place. The host hears of it once, as of any new application.
TEST_F(AgentApplicationsTest, AnEntryRenamedIntoPlaceIsAnnouncedOnce) {
  const std::string port = startAgent();
  auto host = startHost(port);
  const std::string entry = dir / "home/.local/share/applications/org.example.Pkg.desktop";
  fs::rename(test::makeDesktopEntry(dir,
                                    "home/.local/share/applications/org.example.Pkg.desktop"
                                    ".dpkg-new",
                                    "Pkg", "X-AppVersion=3.1\n"),
             entry);
  json message = nextMessage(*host);
  EXPECT_EQ(message["name"], "InstallCommand");
  EXPECT_EQ(message["parms"]["AppFile"]["appPath"], entry);
  EXPECT_EQ(message["parms"]["AppFile"]["appVersion"], "3.1");

  // The next thing the host hears is the next application, not the same one again.
  const std::string next = test::makeDesktopEntry(
      dir, "home/.local/share/applications/org.example.Next.desktop", "Next");
  message = nextMessage(*host);
  EXPECT_EQ(message["parms"]["AppFile"]["appPath"], next);
  stopAgent();
}

}  // namespace agent_applications_test
}  // namespace vexa
