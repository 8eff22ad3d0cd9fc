// vexa-watch printing the download-folder watcher's call-backs, in a home folder of its own.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>

#include "support/ChildProcess.h"
#include "support/IsolatedHome.h"

namespace vexa {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::ChildProcess;

json next(ChildProcess& child) {
  auto line = child.readLine(std::chrono::seconds(15));
  return line ? json::parse(*line, nullptr, false) : json();
}

TEST(VexaWatchDownloadsTest, PrintsADownloadCompletedByRename) {
  test::IsolatedHome isolated;
  const std::string downloads = isolated.dir.mkdir("home/Downloads");
  // Already there at start: found by the first scan.
  std::ofstream(downloads + "/report.pdf.crdownload") << "part";
  ChildProcess watch({VEXA_WATCH_PATH, "downloads"});
  EXPECT_EQ(next(watch), (json{{"watch", "started"}, {"what", "downloads"}}));
  fs::rename(downloads + "/report.pdf.crdownload", downloads + "/report.pdf");
  EXPECT_EQ(next(watch),
            (json{{"watch", "downloadFileCompleted"}, {"path", downloads + "/report.pdf"}}));
  watch.signal(SIGTERM);
  EXPECT_EQ(watch.waitExit(), 0);
}

}  // namespace
}  // namespace vexa
