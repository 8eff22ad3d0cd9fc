// The agent's peer policy on real loopback sockets: the kernel tells the owner of each peer.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <memory>
#include <mutex>
#include <thread>

#include "messaging/SameUserPolicy.h"
#include "support/ChildProcess.h"
#include "support/RawClient.h"
#include "support/Signal.h"
#include "vexa/messaging/PeerPolicy.h"
#include "vexa/messaging/XConnectClient.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace peer_policy_server_test {

using test::RawClient;

constexpr const char* kIPv4 = "127.0.0.1";

int occupiedSlots() {
  int n = 0;
  for (int fd : XSocketServer::slots()) n += fd != 0;
  return n;
}

class PeerPolicyServerTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    server = XSocketServer::create(GetParam(), 0);
    if (!server->startListen()) GTEST_SKIP() << "cannot listen on " << GetParam();
    server->setPeerPolicy(PeerPolicy::sameUser());
    acceptor = std::thread([this] { server->acceptConnect(); });
  }
  void TearDown() override {
    if (!acceptor.joinable()) return;
    server->stopListen();
    acceptor.join();
  }
  // vexa-host as another account: what it prints, until the agent closes the channel.
  std::vector<std::string> hostAsNobody() {
    test::ChildProcess host({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                             VEXA_HOST_PATH, "--host", GetParam(), "--port",
                             std::to_string(server->port())});
    std::vector<std::string> lines;
    while (auto line = host.readLine()) lines.push_back(*line);
    EXPECT_EQ(host.waitExit(), 0);
    return lines;
  }

  std::shared_ptr<XSocketServer> server;
  std::thread acceptor;
};

TEST_P(PeerPolicyServerTest, TheSameUserIsServedWithTheUsualTenSlots) {
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < XSocketServer::kMaxClients; ++i) {
    clients.push_back(std::make_unique<RawClient>(server->port(), GetParam()));
    auto greeting = clients.back()->receive();
    ASSERT_TRUE(greeting);
    EXPECT_NE(greeting->find("ServerConnectCommand"), std::string::npos) << *greeting;
  }
  RawClient eleventh(server->port(), GetParam());
  auto refusal = eleventh.receive();
  ASSERT_TRUE(refusal);
  EXPECT_NE(refusal->find("reaches the maximum value"), std::string::npos) << *refusal;
  EXPECT_FALSE(eleventh.closedByPeer(100));  // left open, as without a policy
}

TEST_P(PeerPolicyServerTest, AnotherUserIsToldWhyClosedAndNeverHoldsASlot) {
  if (::geteuid() != 0 || ::access("/usr/bin/setpriv", X_OK) != 0) {
    GTEST_SKIP() << "needs root and setpriv to run a client as another user";
  }
  RawClient own(server->port(), GetParam());
  ASSERT_TRUE(own.receive());
  own.send(Message("ConnectCommand", {{"Identity", XSocketServer::kHostIdentity}}));
  ASSERT_TRUE(test::eventually(
      [&] { return server->getConnetClientByIdentity(XSocketServer::kHostIdentity) != nullptr; }));

  const auto lines = hostAsNobody();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], std::string(R"({"name":"ServerRefuseCommand","parms":{"Error":")") +
                          SameUserPolicy::kOtherUser + "\"}}");
  EXPECT_EQ(occupiedSlots(), 1);
  // The refused client's "ConnectCommand" took nothing: the host is still the first one.
  auto host = server->getConnetClientByIdentity(XSocketServer::kHostIdentity);
  ASSERT_TRUE(host);
  ASSERT_TRUE(host->sendData(Message("InstallCommand", {{"AppFile", {{"appPath", "/a.app"}}}})));
  EXPECT_EQ(own.receive(), R"({"name":"InstallCommand","parms":{"AppFile":{"appPath":"/a.app"}}})");
}

TEST_P(PeerPolicyServerTest, AFloodFromAnotherUserLeavesTheHostServedAndTheLogQuiet) {
  if (::geteuid() != 0 || ::access("/usr/bin/setpriv", X_OK) != 0 || GetParam() != kIPv4) {
    GTEST_SKIP() << "needs root and setpriv to run a client as another user; bash reaches IPv4";
  }
  std::mutex mutex;
  int logged = 0;
  SystemLog::setSink([&](const std::string&) {
    std::lock_guard lock(mutex);
    ++logged;
  });
  RawClient own(server->port(), GetParam());
  ASSERT_TRUE(own.receive());
  own.send(Message("ConnectCommand", {{"Identity", XSocketServer::kHostIdentity}}));
  ASSERT_TRUE(test::eventually(
      [&] { return server->getConnetClientByIdentity(XSocketServer::kHostIdentity) != nullptr; }));

  // A thousand connections as fast as bash makes them, each closed at once.
  const std::string port = std::to_string(server->port());
  test::ChildProcess flood({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                            "/bin/bash", "-c",
                            "for i in $(seq 1000); do exec 3<>/dev/tcp/127.0.0.1/" + port +
                                " && exec 3<&-; done 2>/dev/null; echo done"});
  // Meanwhile the host hears every message sent to it. The listen queue overflows now and then
  // (the kernel then drops a connection attempt and the client retries a second later), so the
  // flood is watched for a few seconds, not to its end.
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  int heard = 0;
  bool flooding = true;
  while (heard < 20 || (flooding && std::chrono::steady_clock::now() < until)) {
    auto host = server->getConnetClientByIdentity(XSocketServer::kHostIdentity);
    ASSERT_TRUE(host);
    ASSERT_TRUE(host->sendData(Message("PackageAdd", {{"Path", "/p" + std::to_string(heard)}})));
    ASSERT_TRUE(own.receive());
    ++heard;
    if (flooding) flooding = !flood.readLine(std::chrono::milliseconds(1));
  }
  flood.signal(SIGKILL);
  flood.waitExit();
  // A flood connection whose client is already gone can read as root's (closed sockets carry no
  // owner); it goes as soon as its receiving thread sees the end.
  EXPECT_TRUE(test::eventually([] { return occupiedSlots() == 1; }));
  SystemLog::setSink(nullptr);
  std::lock_guard lock(mutex);
  EXPECT_LE(logged, 2);  // one line for the other user, at most one for a peer already gone
}

INSTANTIATE_TEST_SUITE_P(Loopback, PeerPolicyServerTest, ::testing::Values(kIPv4, "::1"),
                         [](const auto& test) { return test.index == 0 ? "IPv4" : "IPv6"; });

}  // namespace peer_policy_server_test
}  // namespace vexa
