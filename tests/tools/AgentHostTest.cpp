// The real vexa-agent and vexa-host programs talking to each other.
#include <gtest/gtest.h>
#include <signal.h>

#include "support/ChildProcess.h"
#include "support/IsolatedHome.h"
#include "support/RawClient.h"

namespace vexa {
namespace agent_host_test {

using test::ChildProcess;

// The agent watches the home folder: every test gives it one of its own.
class AgentHostTest : public ::testing::Test {
  test::IsolatedHome isolated;
};

uint16_t portOf(const std::string& listening) {
  return static_cast<uint16_t>(std::stoi(listening.substr(listening.rfind(':') + 1)));
}

TEST_F(AgentHostTest, TheHostSeesTheGreetingSendsCommandsAndLeavesOnQuit) {
  ChildProcess agent({VEXA_AGENT_PATH, "--port", "0"});
  auto listening = agent.readLine();
  ASSERT_TRUE(listening);
  ASSERT_EQ(listening->rfind("listening on 127.0.0.1:", 0), 0u) << *listening;
  const std::string port = std::to_string(portOf(*listening));

  ChildProcess host({VEXA_HOST_PATH, "--port", port, "--install-path", "/opt/apps"});
  auto greeting = host.readLine();
  ASSERT_TRUE(greeting);
  EXPECT_EQ(
      greeting->rfind(
          R"({"name":"ServerConnectCommand","parms":{"Result":"The new client (0) join success 127.0.0.1:)",
          0),
      0u)
      << *greeting;
  // A command typed by a person is accepted and changes nothing visible; a bad line is skipped.
  host.write("not json\n");
  host.write(R"({"name":"ForceRemoveSuccessCommand","parms":{"Path":["/a.app"]}})"
             "\n");

  agent.signal(SIGTERM);
  EXPECT_EQ(host.readLine(), R"({"name":"quit"})");
  EXPECT_EQ(host.waitExit(), 0);
  EXPECT_EQ(agent.waitExit(), 0);
}

TEST_F(AgentHostTest, TheHostLeavesWhenTheAgentCloses) {
  ChildProcess agent({VEXA_AGENT_PATH, "--port", "0"});
  auto listening = agent.readLine();
  ASSERT_TRUE(listening);
  ChildProcess host({VEXA_HOST_PATH, "--port", std::to_string(portOf(*listening))});
  ASSERT_TRUE(host.readLine());
  agent.signal(SIGKILL);  // no "quit": the connection just ends
  EXPECT_EQ(host.waitExit(), 0);
}

TEST_F(AgentHostTest, BadArgumentsAndATakenPortAreRefused) {
  ChildProcess badPort({VEXA_AGENT_PATH, "--port", "70000"});
  EXPECT_EQ(badPort.waitExit(), 2);
  ChildProcess unknown({VEXA_HOST_PATH, "--frobnicate", "x"});
  EXPECT_EQ(unknown.waitExit(), 2);

  ChildProcess first({VEXA_AGENT_PATH, "--port", "0"});
  auto listening = first.readLine();
  ASSERT_TRUE(listening);
  ChildProcess second({VEXA_AGENT_PATH, "--port", std::to_string(portOf(*listening))});
  EXPECT_EQ(second.waitExit(), 1);
  first.signal(SIGINT);
  EXPECT_EQ(first.waitExit(), 0);

  ChildProcess nobody({VEXA_HOST_PATH, "--port", std::to_string(portOf(*listening))});
  EXPECT_EQ(nobody.waitExit(), 1);  // nothing listens any more
}

}  // namespace agent_host_test
}  // namespace vexa
