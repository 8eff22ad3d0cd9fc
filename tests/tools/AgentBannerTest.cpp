// The real vexa-agent telling of a removal with a banner on a notification server of our own (on
// a private bus), and a click on it starting the host application, which then hears of the
// removal once.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>

#include "support/AppFixtures.h"
#include "support/ChildProcess.h"
#include "support/IsolatedHome.h"
#include "support/PrivateBus.h"
#include "support/Signal.h"
#include "util/AtomicFile.h"

namespace vexa {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::ChildProcess;

// The server's next JSON line with the given key.
json nextWith(ChildProcess& server, const std::string& key) {
  while (auto line = server.readLine(std::chrono::seconds(20))) {
    auto value = json::parse(*line, nullptr, false);
    if (value.is_object() && value.contains(key)) return value;
  }
  return {};
}

int countLines(const std::string& path, const std::string& needle) {
  std::ifstream in(path);
  int count = 0;
  for (std::string line; std::getline(in, line);) count += line.find(needle) != std::string::npos;
  return count;
}

TEST(AgentBannerTest, AClickOnTheRemovalBannerStartsTheHostWhichHearsOfTheRemovalOnce) {
  test::IsolatedHome isolated;
  const test::TempDir& dir = isolated.dir;
  test::PrivateBus bus;
  ASSERT_TRUE(bus.ok());
  test::ScopedEnv session("DBUS_SESSION_BUS_ADDRESS", bus.address());
  ChildProcess server({VEXA_FAKE_NOTIFICATION_SERVER, bus.address(), "actions,body"});
  ASSERT_EQ(server.readLine().value_or(""), R"({"ready":true})");

  test::BundleRecipe recipe;
  recipe.identifier = "com.example.Doomed";
  recipe.name = "Doomed";
  const std::string doomed = test::makeBundle(dir, "home/Applications/Doomed.app", recipe);
  ChildProcess agent({VEXA_AGENT_PATH, "--port", "0", "--cache", dir / "cache"});
  auto listening = agent.readLine(std::chrono::seconds(30));
  ASSERT_TRUE(listening);
  const std::string port = listening->substr(listening->rfind(':') + 1);

  // The host application, as the desktop knows it: its entry starts vexa-host into a file.
  const std::string script = dir / "host.sh";
  ASSERT_FALSE(AtomicFile::write(script,
                                 "#!/bin/sh\necho $$ > '" + (dir / "host.pid") +
                                     "'\nexec '" VEXA_HOST_PATH "' --port " + port + " > '" +
                                     (dir / "host.log") + "' 2>&1\n",
                                 0755));
  ASSERT_FALSE(
      AtomicFile::write(dir / "home/.local/share/applications/com.tarnwick.Vexa-Sweeper.desktop",
                        "[Desktop Entry]\nType=Application\nName=Sweeper\nExec=" + script + "\n"));

  const std::string trashed = isolated.trash() + "/Doomed.app";
  fs::rename(doomed, trashed);
  const json notify = nextWith(server, "summary");
  EXPECT_EQ(notify["summary"], "Doomed");
  EXPECT_EQ(notify["desktop-entry"], "com.tarnwick.Vexa-Sweeper");
  ASSERT_TRUE(notify["actions"].is_array());
  EXPECT_EQ(notify["actions"][0], "default");

  server.write("invoke 1 default\n");
  const std::string log = dir / "host.log";
  EXPECT_TRUE(test::eventually([&] { return countLines(log, "RemoveCommand") == 1; },
                               std::chrono::seconds(20)));
  // The agent's "quit" is the last thing the host hears: everything sent before it is in.
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.waitExit(), 0);
  EXPECT_TRUE(test::eventually([&] { return countLines(log, "quit") == 1; }));
  std::ifstream pidFile(dir / "host.pid");
  pid_t host = 0;
  if (pidFile >> host && host > 0) ::kill(host, SIGTERM);
  std::ifstream in(log);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find(trashed), std::string::npos) << text;
  EXPECT_EQ(countLines(log, "RemoveCommand"), 1) << text;
  // Stopping, the agent took its banner away (answered, it was no longer shown).
}

}  // namespace
}  // namespace vexa
