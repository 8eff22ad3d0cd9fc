#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/FakeEventStream.h"
#include "support/IsolatedHome.h"
#include "vexa/events/FileSystemMonitor.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/monitors/MonitorApplication.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/Preferences.h"

namespace vexa::test {

// A home folder and data folders of its own, and a monitor over them whose dispatcher's event
// stream is a fake (the tests hand it file events directly) and whose socket server is real.
class MonitorFixture : public ::testing::Test {
 protected:
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

  std::string cache() const { return dir / "cache"; }
  std::string trash() const { return isolated.trash(); }

  IsolatedHome isolated;
  const TempDir& dir;
  std::shared_ptr<FakeStreamLog> log;
  Preferences prefs;
  FileSystemMonitor fsMonitor;
  std::shared_ptr<MonitorDispatch> dispatch;
  std::shared_ptr<XSocketServer> server;
  std::shared_ptr<MonitorApplication> monitor;
};

}  // namespace vexa::test
