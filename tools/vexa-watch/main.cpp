// vexa-watch: runs the in-process watchers on the main loop and prints each of their call-backs
// as one JSON line on standard output, until SIGINT or SIGTERM.
//
//   vexa-watch apps    the applications folder: appAdded, movedToTrash (and, for a folder moved
//                      into the Trash, the Trash watcher's trashAddedApp)
//   vexa-watch trash   the Trash: trashAddedApp, trashUsedSizeChanged
//   vexa-watch downloads
//                      the browsers' download folders: downloadFileCompleted
//
// The first line, {"watch":"started",...}, says the watch is in place. What the watchers log
// goes to standard error as well.

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "StopSignals.h"
#include "vexa/monitors/WatchApplication.h"
#include "vexa/monitors/WatchDownload.h"
#include "vexa/monitors/WatchTrash.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace {

void print(const nlohmann::json& line) {
  std::string text;
  try {
    text = line.dump();
  } catch (const nlohmann::json::type_error&) {
    // A name that is not UTF-8 cannot be written as JSON text: the call is not printed, and
    // said once in the log rather than once per file.
    static bool logged = false;
    if (!std::exchange(logged, true)) {
      vexa::SystemLog::log("vexa-watch: a path that is not UTF-8 is not printed (%s)",
                           line.value("watch", "").c_str());
    }
    return;
  }
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

class Printer : public vexa::ApplicationsWatchDelegate,
                public vexa::TrashWatchDelegate,
                public vexa::WatchDownloadDelegate {
 public:
  void appAdded(const std::string& path) override {
    print({{"watch", "appAdded"}, {"path", path}});
  }
  void movedToTrash(const std::string& path) override {
    print({{"watch", "movedToTrash"}, {"path", path}});
  }
  void trashAddedApp(const std::string& path) override {
    print({{"watch", "trashAddedApp"}, {"path", path}});
  }
  void trashUsedSizeChanged(uint64_t size) override {
    print({{"watch", "trashUsedSizeChanged"}, {"size", size}});
  }
  void downloadFileCompleted(const std::string& path) override {
    print({{"watch", "downloadFileCompleted"}, {"path", path}});
  }
};

int usage() {
  std::fprintf(stderr, "usage: vexa-watch apps|trash|downloads\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return usage();
  const std::string what = argv[1];
  if (what != "apps" && what != "trash" && what != "downloads") return usage();

  const vexa::tools::StopSignals stopSignals;

  // What the watchers log (a watch that cannot be placed, say) shows next to what they tell.
  vexa::SystemLog::setMirrorToStderr(true);
  auto printer = std::make_shared<Printer>();
  static int stop = 0;
  vexa::WatchTrash& trash = vexa::WatchTrash::shared();
  trash.setDelegate(printer);
  if (what == "apps") {
    vexa::WatchApplication& apps = vexa::WatchApplication::shared();
    apps.setDelegate(printer);
    apps.startWatch(&stop);
  } else if (what == "downloads") {
    vexa::WatchDownload& downloads = vexa::WatchDownload::shared();
    downloads.setDelegate(printer);
    downloads.startWatch(&stop);
  } else {
    trash.startWatch(&stop);
  }
  // Whatever changes from here on is heard.
  print({{"watch", "started"}, {"what", what}});

  vexa::RunLoop loop = vexa::RunLoop::main();
  stopSignals.quitOnSignal(loop);
  loop.run();
  if (what == "apps") {
    vexa::WatchApplication::shared().stopWatch();
  } else if (what == "downloads") {
    vexa::WatchDownload::shared().stopWatch();
  } else {
    trash.stopWatch();
  }
  return 0;
}
