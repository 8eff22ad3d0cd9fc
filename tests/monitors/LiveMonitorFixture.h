#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "events/EventStream.h"
#include "support/IsolatedHome.h"
#include "support/RawClient.h"
#include "support/Signal.h"
#include "vexa/events/FileSystemMonitor.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/messaging/Message.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/Preferences.h"
#include "vexa/util/RunLoop.h"

namespace vexa::test {

// An isolated home watched by the real event stream (inotify) through a real dispatcher, and a
// real server with a host connected whose messages a reader thread collects. The tests turn the
// main loop (where the stream delivers) until the messages they wait for arrive or a deadline.
class LiveMonitorFixture : public ::testing::Test {
 protected:
  using json = nlohmann::json;

  LiveMonitorFixture()
      : home(isolated.dir / "home"),
        prefs(isolated.dir / "prefs.json"),
        fsMonitor(makePlatformEventStreamFactory(), prefs),
        dispatch(MonitorDispatch::create(fsMonitor, DispatchQueue::global())),
        server(XSocketServer::create("127.0.0.1", 0)) {}

  ~LiveMonitorFixture() override {
    stopReading = true;
    if (reader.joinable()) reader.join();
    if (acceptor.joinable()) {
      server->stopListen();
      acceptor.join();
    }
  }

  void connectHost() {
    ASSERT_TRUE(server->startListen());
    acceptor = std::thread([this] { server->acceptConnect(); });
    host = std::make_unique<RawClient>(server->port());
    ASSERT_TRUE(host->receive());  // the greeting
    host->send(Message("ConnectCommand", {{"Identity", XSocketServer::kHostIdentity}}));
    ASSERT_TRUE(eventually([&] {
      return server->getConnetClientByIdentity(XSocketServer::kHostIdentity) != nullptr;
    }));
    reader = std::thread([this] {
      while (!stopReading) {
        auto text = host->receive(50);
        if (!text) continue;
        std::lock_guard lock(mutex);
        received.push_back(json::parse(*text));
      }
    });
  }

  static json message(const std::string& name, const std::string& path) {
    return {{"name", name}, {"parms", {{"Path", path}}}};
  }
  std::vector<json> messages() const {
    std::lock_guard lock(mutex);
    return received;
  }
  size_t count(const json& wanted) const {
    auto all = messages();
    return static_cast<size_t>(std::count(all.begin(), all.end(), wanted));
  }
  // Turns the main loop until `wanted` has arrived (or the deadline passed).
  bool waitFor(const json& wanted, std::chrono::milliseconds timeout = std::chrono::seconds(15)) {
    return RunLoop::main().runUntil([&] { return count(wanted) > 0; }, timeout);
  }
  // Writes a new file `relative` and waits for the message `name` about it: the work that the
  // events before it scheduled was queued before its own. Tests name it "marker-...".
  void settle(const std::string& relative, const std::string& name) {
    ASSERT_TRUE(waitFor(message(name, isolated.dir.write(relative, "x"))));
  }
  static std::vector<std::string> withoutMarkers(std::vector<std::string> paths) {
    std::erase_if(paths, [](const std::string& p) { return p.find("/marker-") != p.npos; });
    return paths;
  }
  // Stops the monitor and lets go of it. A background task still running holds the monitor,
  // which talks to the server: wait until none does (a task that had not taken it yet never
  // will, and one that had lets go when it ends).
  template <typename Monitor>
  static void release(std::shared_ptr<Monitor>& monitor) {
    if (!monitor) return;
    monitor->stopMonotor();
    const std::weak_ptr held = monitor;
    monitor.reset();
    EXPECT_TRUE(eventually([&] { return held.expired(); }));
  }
  IsolatedHome isolated;
  const std::string home;
  Preferences prefs;
  FileSystemMonitor fsMonitor;
  std::shared_ptr<MonitorDispatch> dispatch;
  std::shared_ptr<XSocketServer> server;
  std::unique_ptr<RawClient> host;
  std::thread acceptor, reader;
  std::atomic<bool> stopReading{false};
  mutable std::mutex mutex;
  std::vector<json> received;  // guarded by mutex
};

}  // namespace vexa::test
