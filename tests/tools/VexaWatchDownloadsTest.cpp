// vexa-watch printing the download-folder watcher's call-backs, in a home folder of its own.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>

#include "support/ChildProcess.h"
#include "support/IsolatedHome.h"

namespace vexa {
namespace vexa_watch_downloads_test {

namespace fs = std::filesystem;
using nlohmann::json;
using test::ChildProcess;

// The next JSON line, past any line the watcher logged.
json next(ChildProcess& child) {
  while (auto line = child.readLine(std::chrono::seconds(15))) {
    json parsed = json::parse(*line, nullptr, false);
    if (parsed.is_object()) return parsed;
  }
  return json();
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

TEST(VexaWatchDownloadsTest, AtTheWatchLimitNamesTheSettingAndServesTheRest) {
  if (std::system("/usr/bin/unshare --user --map-root-user true 2>/dev/null") != 0) {
    GTEST_SKIP() << "user namespaces are not available";
  }
  test::IsolatedHome isolated;
  const std::string downloads = isolated.dir.mkdir("home/Downloads");
  for (int i = 100; i < 200; ++i) {
    std::ofstream(downloads + "/p-" + std::to_string(i) + ".crdownload") << "part";
  }
  // A user namespace of its own whose watch limit leaves room for a few partial files: the
  // Downloads folder, two settings folders (the home folder and its data folder) and 10.
  ChildProcess watch({"/usr/bin/unshare", "--user", "--map-root-user", "sh", "-c",
                      "echo 13 > /proc/sys/user/max_inotify_watches && exec \"$0\" downloads 2>&1",
                      VEXA_WATCH_PATH});
  std::string logged;
  for (;;) {
    auto line = watch.readLine(std::chrono::seconds(15));
    ASSERT_TRUE(line) << logged;
    const json parsed = json::parse(*line, nullptr, false);
    if (parsed.is_discarded()) logged += *line + "\n";
    if (parsed.is_object() && parsed["watch"] == "started") break;
  }
  EXPECT_NE(logged.find("90 partial downloads could not be watched (the limit is "
                        "fs.inotify.max_user_watches); 10 are"),
            std::string::npos)
      << logged;
  // The first in name order are watched.
  fs::rename(downloads + "/p-100.crdownload", downloads + "/p-100");
  EXPECT_EQ(next(watch),
            (json{{"watch", "downloadFileCompleted"}, {"path", downloads + "/p-100"}}));
  watch.signal(SIGTERM);
  EXPECT_EQ(watch.waitExit(), 0);
}

}  // namespace vexa_watch_downloads_test
}  // namespace vexa
