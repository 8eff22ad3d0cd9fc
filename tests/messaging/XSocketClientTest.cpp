#include "vexa/messaging/XSocketClient.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/Signal.h"
#include "vexa/messaging/XConnectClient.h"
#include "vexa/messaging/XSocketServer.h"

namespace vexa {
namespace x_socket_client_test {

using test::eventually;

TEST(XSocketClientTest, ConnectsOnSendOnceAServerListensAndReconnectsAfterQuit) {
  // A free port, closed again so nothing listens on it yet.
  auto probe = XSocketServer::create("127.0.0.1", 0);
  ASSERT_TRUE(probe->startListen());
  const uint16_t port = probe->port();
  probe->stopListen();

  XSocketClient client("", port);  // an empty host is 127.0.0.1
  const Message hello("ConnectCommand", {{"Identity", "org.example.Probe"}});
  EXPECT_FALSE(client.sendData(hello));
  EXPECT_FALSE(client.isConnect());

  auto server = XSocketServer::create("127.0.0.1", port);
  ASSERT_TRUE(server->startListen());
  std::thread acceptor([&] { server->acceptConnect(); });
  EXPECT_TRUE(client.sendData(hello));
  EXPECT_TRUE(client.isConnect());
  ASSERT_TRUE(eventually(
      [&] { return server->getConnetClientByIdentity("org.example.Probe") != nullptr; }));

  // The client asks to be let go; the server closes, the client notices.
  EXPECT_TRUE(client.sendData(Message("quit")));
  ASSERT_TRUE(eventually([&] { return !client.isConnect(); }));
  // The next send connects again.
  EXPECT_TRUE(client.sendData(Message("ConnectCommand", {{"Identity", "org.example.Again"}})));
  ASSERT_TRUE(eventually(
      [&] { return server->getConnetClientByIdentity("org.example.Again") != nullptr; }));

  server->stopListen();
  acceptor.join();
  client.closeConnect();
  EXPECT_FALSE(client.isConnect());
  EXPECT_EQ(client.socketFD(), 0);
}

TEST(XSocketClientTest, AQuitTextClosesTheClient) {
  auto server = XSocketServer::create("127.0.0.1", 0);
  ASSERT_TRUE(server->startListen());
  std::thread acceptor([&] { server->acceptConnect(); });
  XSocketClient client("127.0.0.1", server->port());
  ASSERT_TRUE(client.connectServer());
  client.handleMessage(R"({"name":"TrashSizeChange"})");
  EXPECT_TRUE(client.isConnect());
  client.handleMessage(R"({"name":"quit"})");
  EXPECT_FALSE(client.isConnect());
  server->stopListen();
  acceptor.join();
}

}  // namespace x_socket_client_test
}  // namespace vexa
