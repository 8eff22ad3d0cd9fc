// The real vexa-agent telling of a removal with a banner on a notification server of our own (on
// a private bus), and what an answer to it starts: the host application, which then hears of the
// removal once, or nothing at all.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "support/AppFixtures.h"
#include "support/ChildProcess.h"
#include "support/IsolatedHome.h"
#include "support/PrivateBus.h"
#include "support/Signal.h"
#include "util/AtomicFile.h"

namespace vexa {
namespace agent_banner_test {

namespace fs = std::filesystem;
using nlohmann::json;
using test::ChildProcess;
using namespace std::chrono_literals;

int countLines(const std::string& path, const std::string& needle) {
  std::ifstream in(path);
  int count = 0;
  for (std::string line; std::getline(in, line);) count += line.find(needle) != std::string::npos;
  return count;
}

class AgentBannerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(bus.ok());
    session.emplace("DBUS_SESSION_BUS_ADDRESS", bus.address());
    server.emplace(
        std::vector<std::string>{VEXA_FAKE_NOTIFICATION_SERVER, bus.address(), "actions,body"});
    ASSERT_EQ(server->readLine().value_or(""), R"({"ready":true})");

    test::BundleRecipe recipe;
    recipe.identifier = "com.example.Doomed";
    recipe.name = "Doomed";
    doomed = test::makeBundle(dir(), "home/Applications/Doomed.app", recipe);
    for (int i = 1; i < bundles; ++i) {
      recipe.identifier = "com.example.Doomed" + std::to_string(i);
      recipe.name = "Doomed" + std::to_string(i);
      others.push_back(
          test::makeBundle(dir(), "home/Applications/" + recipe.name + ".app", recipe));
    }
    agent.emplace(
        std::vector<std::string>{VEXA_AGENT_PATH, "--port", "0", "--cache", dir() / "cache"});
    auto listening = agent->readLine(30s);
    ASSERT_TRUE(listening);
    const std::string port = listening->substr(listening->rfind(':') + 1);

    // The host application, as the desktop knows it: its entry starts vexa-host into a file.
    const std::string script = dir() / "host.sh";
    ASSERT_FALSE(AtomicFile::write(script,
                                   "#!/bin/sh\necho $$ > '" + hostPid() +
                                       "'\nexec '" VEXA_HOST_PATH "' --port " + port + " > '" +
                                       hostLog() + "' 2>&1\n",
                                   0755));
    ASSERT_FALSE(AtomicFile::write(
        dir() / "home/.local/share/applications/com.tarnwick.Vexa-Sweeper.desktop",
        "[Desktop Entry]\nType=Application\nName=Sweeper\nExec=" + script + "\n"));
  }
  void TearDown() override {
    std::ifstream pidFile(hostPid());
    pid_t host = 0;
    if (pidFile >> host && host > 0) ::kill(host, SIGTERM);
  }

  const test::TempDir& dir() const { return isolated.dir; }
  std::string hostPid() const { return dir() / "host.pid"; }
  std::string hostLog() const { return dir() / "host.log"; }
  // The server's next JSON line with the given key, every line read kept in `calls`.
  json nextWith(const std::string& key, std::chrono::milliseconds timeout = 20s) {
    while (auto line = server->readLine(timeout)) {
      auto value = json::parse(*line, nullptr, false);
      calls.push_back(value);
      if (value.is_object() && value.contains(key)) return value;
    }
    return {};
  }
  int notifies() const {
    int count = 0;
    for (const auto& call : calls) count += call.is_object() && call.value("call", "") == "Notify";
    return count;
  }
  void expectOneBannerFor(const std::string& name) {
    const json notify = nextWith("summary");
    EXPECT_EQ(notify["summary"], name);
    EXPECT_EQ(notify["desktop-entry"], "com.tarnwick.Vexa-Sweeper");
    ASSERT_TRUE(notify["actions"].is_array());
    EXPECT_EQ(notify["actions"][0], "default");
  }

  test::IsolatedHome isolated;
  test::PrivateBus bus;
  std::optional<test::ScopedEnv> session;
  std::optional<ChildProcess> server;
  std::optional<ChildProcess> agent;
  int bundles = 1;  // Doomed and as many others less one
  std::string doomed;
  std::vector<std::string> others;
  std::vector<json> calls;
};

TEST_F(AgentBannerTest, AClickOnTheRemovalBannerStartsTheHostWhichHearsOfTheRemovalOnce) {
  const std::string trashed = isolated.trash() + "/Doomed.app";
  fs::rename(doomed, trashed);
  expectOneBannerFor("Doomed");

  server->write("invoke 1 default\n");
  EXPECT_TRUE(test::eventually([&] { return countLines(hostLog(), "RemoveCommand") == 1; }, 20s));
  // The agent's "quit" is the last thing the host hears: everything sent before it is in.
  agent->signal(SIGTERM);
  EXPECT_EQ(agent->waitExit(), 0);
  EXPECT_TRUE(test::eventually([&] { return countLines(hostLog(), "quit") == 1; }));
  std::ifstream in(hostLog());
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find(trashed), std::string::npos) << text;
  EXPECT_EQ(countLines(hostLog(), "RemoveCommand"), 1) << text;
}

TEST_F(AgentBannerTest, CancelTakesTheBannerAwayAndStartsNothing) {
  fs::rename(doomed, isolated.trash() + "/Doomed.app");
  expectOneBannerFor("Doomed");
  server->write("invoke 1 other\n");
  // Cancel fades the bubble out; whatever the answer starts is started on that same turn.
  const json close = nextWith("call");
  EXPECT_EQ(close["call"], "CloseNotification");
  EXPECT_EQ(close["id"], 1);
  EXPECT_EQ(notifies(), 1);
  agent->signal(SIGTERM);
  EXPECT_EQ(agent->waitExit(), 0);
  EXPECT_FALSE(test::eventually([&] { return fs::exists(hostPid()); }, 2s));
}

TEST_F(AgentBannerTest, ADeletedBundleGetsOneBannerWhichTheAgentClosesWhenItStops) {
  fs::remove_all(doomed);  // not to the Trash: reported once it has stayed away a while
  expectOneBannerFor("Doomed");
  agent->signal(SIGTERM);
  const json close = nextWith("call");
  EXPECT_EQ(close["call"], "CloseNotification");
  EXPECT_EQ(close["id"], 1);
  EXPECT_EQ(notifies(), 1);  // the calls before the close are all read by now
  EXPECT_EQ(agent->waitExit(), 0);
  EXPECT_FALSE(fs::exists(hostPid()));
}

class AgentManyRemovalsTest : public AgentBannerTest {
 protected:
  AgentManyRemovalsTest() { bundles = 200; }
};

TEST_F(AgentManyRemovalsTest, TwoHundredRemovalsInASecondMakeOneBanner) {
  fs::remove_all(doomed);
  for (const auto& other : others) fs::remove_all(other);
  ASSERT_FALSE(nextWith("summary").is_null());
  // The rest are confirmed within a second or so of the first: none of them makes a second
  // banner while this one is shown.
  EXPECT_TRUE(nextWith("call", 3s).is_null());
  agent->signal(SIGTERM);
  const json close = nextWith("call");
  EXPECT_EQ(close["call"], "CloseNotification");
  EXPECT_EQ(notifies(), 1);
  EXPECT_EQ(agent->waitExit(), 0);
}

}  // namespace agent_banner_test
}  // namespace vexa
