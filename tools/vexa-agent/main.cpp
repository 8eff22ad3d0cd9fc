// vexa-agent: the background agent. It serves the host application on a local TCP socket, runs
// the installed-application monitor over the home and applications folders, the Trash monitor,
// and the install-package and download monitors over the home folder, keeps the main run loop
// turning for the monitors, and stops cleanly on SIGINT or SIGTERM (telling every client
// "quit").
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "StopSignals.h"
#include "vexa/banners/UserNotification.h"
#include "vexa/banners/UserNotificationCenter.h"
#include "vexa/events/FileSystemMonitor.h"
#include "vexa/messaging/NotificationManager.h"
#include "vexa/messaging/PeerPolicy.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/monitors/MonitorApplication.h"
#include "vexa/monitors/MonitorDownload.h"
#include "vexa/monitors/MonitorInstallPackage.h"
#include "vexa/monitors/MonitorTrash.h"
#include "vexa/util/Image.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace {

// One banner for removals at a time: none while one is waiting or shown. Main thread.
void tellOfRemoval(const vexa::AppFile& app) {
  using vexa::NotificationManager;
  auto& center = vexa::UserNotificationCenter::defaultUserNotificationCenter();
  auto& manager = NotificationManager::shared();
  auto isRemoval = [](const auto& banner) {
    return banner->identity() == NotificationManager::kRemovalIdentity;
  };
  const auto& waiting = center.scheduledNotifications();
  const auto showing = manager.showingItems();
  if (std::any_of(waiting.begin(), waiting.end(), isRemoval) ||
      std::any_of(showing.begin(), showing.end(), isRemoval)) {
    return;
  }
  std::string name = app.appDisplayName.value_or(app.appName.value_or(""));
  if (name.empty()) name = app.appPath;
  const auto icon = app.appIconCachePath ? vexa::Image::load(*app.appIconCachePath) : nullptr;
  manager.postNotification(nullptr, icon, name, "This application was removed.",
                           "Click to clean up what it left behind.", 0,
                           vexa::XSocketServer::kHostIdentity,
                           NotificationManager::kRemovalIdentity);
}

int usage() {
  std::fprintf(stderr,
               "usage: vexa-agent [--host ADDR] [--port N] [--cache DIR] [--allow-remote] "
               "[--skip packages,downloads,trash] [--verbose]\n");
  return 2;
}

// Removals wait for the host: it receives them when it next identifies itself, or when the user
// answers the banner that tells of them (which starts the host).
class RemovalLog : public vexa::MonitorApplicationDelegate {
 public:
  void appRemoved(const std::shared_ptr<vexa::AppFile>& app) override {
    vexa::SystemLog::log("application removed: %s", app->appPath.c_str());
    vexa::RunLoop::main().post([app] { tellOfRemoval(*app); });
  }
  void appsScan(const std::vector<std::shared_ptr<vexa::AppFile>>& apps) override {
    vexa::SystemLog::log("%zu removed applications wait for the host to clean up", apps.size());
  }
};

}  // namespace

int main(int argc, char** argv) {
  std::string host = "127.0.0.1";  // loopback unless asked otherwise
  long port = 13145;
  std::string cache;  // empty: the monitor's own cache folder
  bool allowRemote = false;
  // Monitors left out: the applications are always watched (the host's commands need them).
  std::set<std::string> skipped;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--verbose") {
      vexa::SystemLog::setMirrorToStderr(true);
    } else if (arg == "--allow-remote") {
      allowRemote = true;
    } else if (arg == "--host" && i + 1 < argc) {
      host = argv[++i];
    } else if (arg == "--skip" && i + 1 < argc) {
      std::stringstream list(argv[++i]);
      for (std::string name; std::getline(list, name, ',');) {
        if (name != "packages" && name != "downloads" && name != "trash") return usage();
        skipped.insert(name);
      }
    } else if (arg == "--cache" && i + 1 < argc) {
      cache = argv[++i];
      if (cache.empty()) return usage();
    } else if (arg == "--port" && i + 1 < argc) {
      char* end = nullptr;
      port = std::strtol(argv[++i], &end, 10);
      if (*end != 0 || port < 0 || port > 65535) return usage();
    } else {
      return usage();
    }
  }

  const vexa::tools::StopSignals stopSignals;

  vexa::XSocketServer& server = vexa::XSocketServer::shared();
  server.setHost(host);
  server.setPort(static_cast<uint16_t>(port));
  // The port is open to every account on this machine; only this user's processes (and, when
  // asked, other machines) are served.
  server.setPeerPolicy(vexa::PeerPolicy::sameUser(allowRemote));
  if (!server.startListen()) {
    std::fprintf(stderr, "vexa-agent: cannot listen on %s:%ld: %s\n", host.c_str(), port,
                 std::strerror(errno));
    return 1;
  }

  // The monitor is ready (cache read or inventory taken) before the first connection is
  // accepted; hosts that connect meanwhile wait in the listen queue.
  vexa::MonitorApplication& applications = vexa::MonitorApplication::shared();
  if (!cache.empty()) applications.setCacheFolderPath(cache);
  applications.setDelegate(std::make_shared<RemovalLog>());
  server.setCommandHandler(applications.weak_from_this());
  applications.startMonitor();
  const bool trash = !skipped.contains("trash");
  const bool packagesOn = !skipped.contains("packages");
  const bool downloadsOn = !skipped.contains("downloads");
  if (trash) vexa::MonitorTrash::shared().startMonitor();
  vexa::MonitorInstallPackage& packages = vexa::MonitorInstallPackage::shared();
  vexa::MonitorDownload& downloads = vexa::MonitorDownload::shared();
  if (!cache.empty()) {
    packages.setCacheFolderPath(cache);
    downloads.setCacheFolderPath(cache);
  }
  if (packagesOn) packages.startMonitor();
  if (downloadsOn) downloads.startMonitor();
  std::thread acceptor([&server] { server.acceptConnect(); });

  vexa::RunLoop loop = vexa::RunLoop::main();
  stopSignals.quitOnSignal(loop);
  vexa::NotificationManager::shared();  // the banner centre ticks on this thread's loop

  std::printf("listening on %s:%u\n", host.c_str(), static_cast<unsigned>(server.port()));
  std::fflush(stdout);
  loop.run();
  vexa::SystemLog::log("vexa-agent stopping");
  vexa::UserNotificationCenter::defaultUserNotificationCenter().dismissAll();
  // The stream stops first: each monitor's removal of its paths would otherwise restart it over
  // the paths left, a crawl of those trees.
  vexa::FileSystemMonitor::shared().stopMonitor();
  applications.stopMonotor();
  if (trash) vexa::MonitorTrash::shared().stopMonotor();
  if (packagesOn) packages.stopMonotor();
  if (downloadsOn) downloads.stopMonotor();
  // Waits for a cache write under way, then writes what the monitor knows last: the next start
  // reads a whole cache.
  applications.archiver();
  if (packagesOn) packages.archiver();
  if (downloadsOn) downloads.archiver();
  server.stopListen();
  acceptor.join();
  return 0;
}
