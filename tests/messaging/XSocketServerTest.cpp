#include "vexa/messaging/XSocketServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

#include "support/RawClient.h"
#include "support/Signal.h"
#include "vexa/messaging/XCommandHandler.h"
#include "vexa/messaging/XConnectClient.h"

namespace vexa {
namespace x_socket_server_test {

using nlohmann::json;
using test::RawClient;

class RecordingHandler : public XCommandHandler {
 public:
  void setInstallPaths(const json& paths) override { record("paths", paths); }
  void clearForceRemovedApp(const json& paths) override { record("cleared", paths); }
  std::vector<std::pair<std::string, json>> calls() {
    std::lock_guard lock(mutex);
    return log;
  }
  test::Signal signal;

 private:
  void record(const char* what, const json& v) {
    {
      std::lock_guard lock(mutex);
      log.emplace_back(what, v);
    }
    signal.add();
  }
  std::mutex mutex;
  std::vector<std::pair<std::string, json>> log;
};

// A server on a free loopback port with its accept loop on a thread.
class XSocketServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server = XSocketServer::create("127.0.0.1", 0);
    ASSERT_TRUE(server->startListen());
    server->setCommandHandler(handler);
    acceptor = std::thread([this] { server->acceptConnect(); });
  }
  void TearDown() override {
    server->stopListen();
    acceptor.join();
  }
  // Connects and reads the greeting.
  std::unique_ptr<RawClient> join(std::string* greeting = nullptr) {
    auto c = std::make_unique<RawClient>(server->port());
    auto text = c->receive();
    if (greeting && text) *greeting = *text;
    return c;
  }
  // Waits until the server has seen `identity` on some connection.
  bool identified(const std::string& identity) {
    return test::eventually([&] { return server->getConnetClientByIdentity(identity) != nullptr; });
  }

  std::shared_ptr<XSocketServer> server;
  std::shared_ptr<RecordingHandler> handler = std::make_shared<RecordingHandler>();
  std::thread acceptor;
};

TEST_F(XSocketServerTest, TenSlotsThenARefusalThatLeavesTheSocketOpen) {
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 10; ++i) {
    std::string greeting;
    clients.push_back(join(&greeting));
    auto m = Message::fromJSON(greeting);
    ASSERT_TRUE(m) << i;
    EXPECT_EQ(m->name(), "ServerConnectCommand");
    const std::string expected =
        "The new client (" + std::to_string(i) + ") join success 127.0.0.1:";
    EXPECT_EQ(m->parms()["Result"].get<std::string>().rfind(expected, 0), 0u) << greeting;
  }
  std::string refusal;
  auto eleventh = join(&refusal);
  EXPECT_EQ(refusal,
            R"({"name":"ServerRefuseCommand","parms":{"Error":"The number of clients added to )"
            R"(the server reaches the maximum value and can not be added!"}})");
  EXPECT_FALSE(eleventh->closedByPeer(200));  // still open, and nothing more comes
  EXPECT_EQ(server->connectDict().size(), 10u);
}

TEST_F(XSocketServerTest, TheHostIsFoundByIdentityAndHandsOnItsPaths) {
  auto host = join();
  auto other = join();
  other->send(Message("ConnectCommand", {{"Identity", "org.example.Other"},
                                         {"InstallPaths", json::array({"/opt"})}}));
  host->send(Message("ConnectCommand", {{"Identity", XSocketServer::kHostIdentity},
                                        {"InstallPaths", json::array({"/Applications"})}}));
  ASSERT_TRUE(identified(XSocketServer::kHostIdentity));
  ASSERT_TRUE(identified("org.example.Other"));
  ASSERT_TRUE(handler->signal.waitFor(1));
  EXPECT_EQ(handler->calls(),
            (std::vector<std::pair<std::string, json>>{{"paths", json::array({"/Applications"})}}));

  // A monitor's report reaches the host.
  auto connection = server->getConnetClientByIdentity(XSocketServer::kHostIdentity);
  ASSERT_TRUE(connection->sendData(Message("TrashSizeChange", {{"Used", 1048576}})));
  EXPECT_EQ(host->receive(), R"({"name":"TrashSizeChange","parms":{"Used":1048576}})");
}

TEST_F(XSocketServerTest, ForceRemovalNeedsANonEmptyListFromAnyClient) {
  auto anonymous = join();
  anonymous->send(Message("ForceRemoveSuccessCommand", {{"Path", json::array()}}));
  anonymous->send(Message("ForceRemoveSuccessCommand", {{"Path", "/not/a/list"}}));
  anonymous->send(Message("ForceRemoveSuccessCommand", {{"Path", json::array({"/a.app"})}}));
  ASSERT_TRUE(handler->signal.waitFor(1));
  EXPECT_EQ(handler->calls(),
            (std::vector<std::pair<std::string, json>>{{"cleared", json::array({"/a.app"})}}));
}

TEST_F(XSocketServerTest, ClosedConnectionsAreSkippedAndCleared) {
  auto first = join();
  first->send(Message("ConnectCommand", {{"Identity", XSocketServer::kHostIdentity}}));
  ASSERT_TRUE(identified(XSocketServer::kHostIdentity));
  first->send(Message("quit"));  // the server closes its end; the entry and slot stay for now
  ASSERT_TRUE(first->closedByPeer());
  EXPECT_FALSE(server->getConnetClientByIdentity(XSocketServer::kHostIdentity));
  EXPECT_EQ(server->connectDict().size(), 1u);

  auto second = join();
  second->close();  // a peer that goes away makes the server clear every closed entry
  EXPECT_TRUE(test::eventually([&] { return server->connectDict().empty(); }));
  EXPECT_EQ(XSocketServer::slots(), std::vector<int>(10, 0));
}

TEST_F(XSocketServerTest, StopListenSaysQuitToEveryOpenConnection) {
  auto a = join();
  auto b = join();
  server->stopListen();
  EXPECT_EQ(a->receive(), R"({"name":"quit"})");
  EXPECT_EQ(b->receive(), R"({"name":"quit"})");
  RawClient late(server->port());
  EXPECT_FALSE(late.connected());
}

TEST_F(XSocketServerTest, HostilePeersLoseOnlyTheirOwnConnection) {
  auto host = join();
  host->send(Message("ConnectCommand", {{"Identity", XSocketServer::kHostIdentity}}));
  ASSERT_TRUE(identified(XSocketServer::kHostIdentity));

  auto huge = join();  // announces 1 GiB
  const uint32_t length = 1u << 30;
  huge->sendRaw(&length, sizeof length);
  EXPECT_TRUE(huge->closedByPeer());

  auto bomb = join();  // a small frame that inflates past the limit
  const Bytes packed = *MonitorData::gzipData(std::string(Frame::kMaxBytes + 100, 'a'));
  const auto packedLength = static_cast<uint32_t>(packed.size());
  bomb->sendRaw(&packedLength, 4);
  bomb->sendRaw(packed.data(), packed.size());
  EXPECT_TRUE(bomb->closedByPeer(60000));  // inflating 64 MiB is slow under the sanitizers

  auto stalled = join();  // stops in the middle of a frame and stays
  const uint32_t promised = 100;
  stalled->sendRaw(&promised, 4);
  stalled->sendRaw("abc", 3);

  auto garbage = join();  // well-framed nonsense is ignored
  const uint32_t five = 5;
  garbage->sendRaw(&five, 4);
  garbage->sendRaw("\x1f\x8b\x08\x00\x00", 5);
  EXPECT_FALSE(garbage->closedByPeer(100));

  // The host is served as ever.
  auto connection = server->getConnetClientByIdentity(XSocketServer::kHostIdentity);
  ASSERT_TRUE(connection);
  ASSERT_TRUE(connection->sendData(Message("PackageAdd", {{"Path", "/x.pkg"}})));
  EXPECT_EQ(host->receive(), R"({"name":"PackageAdd","parms":{"Path":"/x.pkg"}})");
}

// A message too random to compress much, so that a few of them fill the socket buffers.
Message bulkyMessage(size_t bytes) {
  static std::mt19937 random(7);
  std::string noise(bytes, ' ');
  for (char& c : noise) c = static_cast<char>('!' + random() % 90);
  for (char& c : noise) c = c == '"' || c == '\\' ? '#' : c;
  return Message("InstallCommand", {{"Noise", noise}});
}

TEST_F(XSocketServerTest, AHostThatStopsReadingIsDroppedAfterTheSendDeadline) {
  server->setSendTimeout(std::chrono::milliseconds(300));
  auto stalled = join();  // identifies itself, then never reads again
  stalled->send(Message("ConnectCommand", {{"Identity", XSocketServer::kHostIdentity}}));
  ASSERT_TRUE(identified(XSocketServer::kHostIdentity));
  auto other = join();
  const auto connection = server->getConnetClientByIdentity(XSocketServer::kHostIdentity);
  ASSERT_TRUE(connection);

  // Sends succeed until both sides' buffers are full, then one misses the deadline and the
  // connection goes; without a deadline this loop would block for ever.
  const Message bulky = bulkyMessage(256 << 10);
  int sent = 0;
  while (sent < 400 && connection->sendData(bulky)) ++sent;
  EXPECT_LT(sent, 400);
  EXPECT_EQ(connection->connectFD(), 0);
  EXPECT_FALSE(connection->sendData(bulky));  // and later senders do not wait on it again

  // Its slot is freed, and the other client is served as before.
  EXPECT_TRUE(test::eventually([&] {
    const auto slots = XSocketServer::slots();
    return std::count_if(slots.begin(), slots.end(), [](int fd) { return fd != 0; }) == 1;
  }));
  EXPECT_FALSE(server->getConnetClientByIdentity(XSocketServer::kHostIdentity));
  server->broadcast(Message("PackageAdd", {{"Path", "/x.pkg"}}));
  EXPECT_EQ(other->receive(), R"({"name":"PackageAdd","parms":{"Path":"/x.pkg"}})");
}

TEST_F(XSocketServerTest, TheAcceptLoopWaitsOutALackOfDescriptors) {
  // Sockets made while descriptors remain; connected once none are left for the server.
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 3; ++i) clients.push_back(std::make_unique<RawClient>());
  rlimit old{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
  int highest = 0;
  for (int fd = 0; fd < 1024; ++fd) {
    if (fcntl(fd, F_GETFD) != -1) highest = fd;
  }
  rlimit tight = old;
  tight.rlim_cur = static_cast<rlim_t>(highest + 1);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
  std::vector<int> fillers;  // take every free number below the limit
  for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) fillers.push_back(fd);
  for (auto& c : clients) ASSERT_TRUE(c->connectTo(server->port()));
  // Normally nothing is accepted now; a descriptor some runtime frees meanwhile may let one in.
  std::vector<std::optional<std::string>> greetings;
  for (auto& c : clients) greetings.push_back(c->receive(100));
  for (int fd : fillers) close(fd);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &old), 0);
  for (size_t i = 0; i < clients.size(); ++i) {
    if (!greetings[i]) greetings[i] = clients[i]->receive();
    ASSERT_TRUE(greetings[i]) << i;
    EXPECT_NE(greetings[i]->find("ServerConnectCommand"), std::string::npos);
  }
}

TEST(XSocketServerBindTest, AnEmptyHostMeansLoopbackOnly) {
  auto loopback = XSocketServer::create("", 0);
  ASSERT_TRUE(loopback->startListen());
  sockaddr_in bound{};
  socklen_t length = sizeof bound;
  ASSERT_EQ(getsockname(loopback->socketFD(), reinterpret_cast<sockaddr*>(&bound), &length), 0);
  EXPECT_EQ(bound.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  auto any = XSocketServer::create("0.0.0.0", 0);
  ASSERT_TRUE(any->startListen());
  ASSERT_EQ(getsockname(any->socketFD(), reinterpret_cast<sockaddr*>(&bound), &length), 0);
  EXPECT_EQ(bound.sin_addr.s_addr, htonl(INADDR_ANY));
  EXPECT_FALSE(XSocketServer::create("not an address", 0)->startListen());
  // A taken port fails to bind.
  auto clash = XSocketServer::create("127.0.0.1", loopback->port());
  EXPECT_FALSE(clash->startListen());
  EXPECT_TRUE(loopback->setBlock(false));
  EXPECT_TRUE(loopback->setBlock(true));
  EXPECT_FALSE(XSocketServer::create()->setBlock(true));  // no socket yet
}

}  // namespace x_socket_server_test
}  // namespace vexa
