#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "support/FakeEventStream.h"
#include "support/IsolatedHome.h"
#include "support/RawClient.h"
#include "support/Signal.h"
#include "vexa/events/FileSystemMonitor.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/messaging/Message.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/monitors/MonitorApplication.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/Preferences.h"

namespace vexa::test {

// A home folder and data folders of its own, and a monitor over them whose dispatcher's event
// stream is a fake (the tests hand it file events directly) and whose socket server is real.
class MonitorFixture : public ::testing::Test {
 protected:
  using json = nlohmann::json;

  MonitorFixture()
      : dir(isolated.dir),
        log(std::make_shared<FakeStreamLog>()),
        prefs(dir / "prefs.json"),
        fsMonitor(std::make_unique<FakeEventStreamFactory>(log), prefs),
        dispatch(MonitorDispatch::create(fsMonitor, DispatchQueue::global())),
        server(XSocketServer::create("127.0.0.1", 0)) {
    monitor = MonitorApplication::create(*dispatch, *server);
    monitor->setCacheFolderPath(cache());
  }
  ~MonitorFixture() override {
    if (acceptor.joinable()) {
      server->stopListen();
      acceptor.join();
    }
  }

  std::string cache() const { return dir / "cache"; }
  std::string trash() const { return isolated.trash(); }
  // The application record the monitor makes of `path`, if it makes one.
  std::optional<AppFile> fill(const std::string& path) {
    AppFile app;
    if (!monitor->wBscInfoFrPath(path, app)) return std::nullopt;
    return app;
  }

  // Serves on a free port, the application monitor answering the hosts' commands.
  void serve() {
    if (acceptor.joinable()) return;
    server->setCommandHandler(monitor);
    EXPECT_TRUE(server->startListen());
    acceptor = std::thread([this] { server->acceptConnect(); });
  }
  // A host connects and identifies itself with these install paths.
  std::unique_ptr<RawClient> connectHost(const json& installPaths = json::array()) {
    serve();
    auto host = std::make_unique<RawClient>(server->port());
    EXPECT_TRUE(host->receive());  // the greeting
    identify(*host, installPaths);
    return host;
  }
  void identify(RawClient& host, const json& installPaths) {
    host.send(Message("ConnectCommand", {{"Identity", XSocketServer::kHostIdentity},
                                         {"InstallPaths", installPaths}}));
    EXPECT_TRUE(eventually([&] {
      return server->getConnetClientByIdentity(XSocketServer::kHostIdentity) != nullptr &&
             monitor->installPaths() == installPaths;
    }));
  }
  static json receive(RawClient& client, int timeoutMs = 10000) {
    auto text = client.receive(timeoutMs);
    return text ? json::parse(*text) : json();
  }

  IsolatedHome isolated;
  const TempDir& dir;
  std::shared_ptr<FakeStreamLog> log;
  Preferences prefs;
  FileSystemMonitor fsMonitor;
  std::shared_ptr<MonitorDispatch> dispatch;
  std::shared_ptr<XSocketServer> server;
  std::shared_ptr<MonitorApplication> monitor;
  std::thread acceptor;
};

}  // namespace vexa::test
