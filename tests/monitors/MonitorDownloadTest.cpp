#include "vexa/monitors/MonitorDownload.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "monitors/BrowserFolders.h"
#include "monitors/LiveMonitorFixture.h"
#include "monitors/PathListCache.h"

namespace vexa {
namespace monitor_download_test {

namespace fs = std::filesystem;
using nlohmann::json;
using Strings = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

// The monitor over the real event stream and the real find, in an isolated home whose
// Downloads folder is every browser's until a test writes browser settings.
class MonitorDownloadTest : public test::LiveMonitorFixture {
 protected:
  MonitorDownloadTest() : downloads(isolated.dir.mkdir("home/Downloads")) {}
  ~MonitorDownloadTest() override {
    if (!monitor) return;
    monitor->stopMonotor();
    // A background search still running holds the monitor, which talks to the server.
    // Let go of it and wait until no task holds it: a task that had not taken it yet never will,
    // and one that had lets go when it ends.
    const std::weak_ptr held = monitor;
    monitor.reset();
    EXPECT_TRUE(test::eventually([&] { return held.expired(); }));
  }
  void start() {
    monitor = MonitorDownload::create(*dispatch, *server);
    monitor->setCacheFolderPath(isolated.dir / "cache");
    monitor->startMonitor();
  }
  std::string write(const std::string& relative, const std::string& text = "x") {
    return isolated.dir.write(relative, text);
  }
  std::string startDownload(const std::string& name) {
    const std::string partial = write("home/Downloads/" + name, "part");
    EXPECT_TRUE(waitFor(message("DownloadAdd", partial)));
    return partial;
  }
  // Waits for a new download started after the events under test: the work they scheduled was
  // queued before its own.
  void settle() { startDownload("marker-" + std::to_string(++markers) + ".opdownload"); }
  Strings downloadsWithoutMarkers() const {
    Strings out;
    for (const auto& p : monitor->downloads()) {
      if (p.find("/marker-") == std::string::npos) out.push_back(p);
    }
    return out;
  }

  const std::string downloads;
  std::shared_ptr<MonitorDownload> monitor;
  int markers = 0;
};

TEST_F(MonitorDownloadTest, AChromeDownloadStartsAndCompletesByRename) {
  start();
  connectHost();
  const std::string partial = startDownload("f.pdf.crdownload");
  EXPECT_EQ(monitor->downloads(), Strings{partial});
  fs::rename(partial, downloads + "/f.pdf");
  ASSERT_TRUE(waitFor(message("DownloadComplete", downloads + "/f.pdf")));
  ASSERT_TRUE(waitFor(message("DownloadRemove", partial)));
  settle();
  EXPECT_EQ(count(message("DownloadComplete", downloads + "/f.pdf")), 1U);
  EXPECT_EQ(downloadsWithoutMarkers(), Strings{});
}

TEST_F(MonitorDownloadTest, AnUnconfirmedChromeDownloadCompletesUnderItsFinalName) {
  start();
  connectHost();
  const std::string partial = startDownload("Unconfirmed 12.crdownload");
  fs::rename(partial, downloads + "/a.pdf");
  ASSERT_TRUE(waitFor(message("DownloadComplete", downloads + "/a.pdf")));
  ASSERT_TRUE(waitFor(message("DownloadRemove", partial)));
}

TEST_F(MonitorDownloadTest, AFirefoxDownloadReplacesItsPlaceholder) {
  start();
  connectHost();
  const std::string placeholder = write("home/Downloads/g.zip", "");
  const std::string partial = startDownload("g.zip.part");
  const auto renamed = Clock::now();
  fs::rename(partial, placeholder);
  ASSERT_TRUE(waitFor(message("DownloadComplete", placeholder)));
  // An archive is judged after the browser had time to unpack it.
  EXPECT_GE(Clock::now() - renamed, std::chrono::seconds(2));
  ASSERT_TRUE(waitFor(message("DownloadRemove", partial)));
  settle();
  EXPECT_EQ(count(message("DownloadComplete", placeholder)), 1U);
}

TEST_F(MonitorDownloadTest, ACancelledDownloadIsRemovedAndNotCompleted) {
  start();
  connectHost();
  const std::string partial = startDownload("c.iso.crdownload");
  fs::remove(partial);
  ASSERT_TRUE(waitFor(message("DownloadRemove", partial)));
  settle();
  for (const auto& m : messages()) EXPECT_NE(m["name"], "DownloadComplete") << m;
}

TEST_F(MonitorDownloadTest, APartialFileMovedIntoTheTrashIsRemovedOnly) {
  start();
  connectHost();
  const std::string partial = startDownload("t.pdf.part");
  fs::rename(partial, isolated.trash() + "/t.pdf.part");
  ASSERT_TRUE(waitFor(message("DownloadRemove", partial)));
  settle();
  for (const auto& m : messages()) EXPECT_NE(m["name"], "DownloadComplete") << m;
  EXPECT_EQ(downloadsWithoutMarkers(), Strings{});
}

TEST_F(MonitorDownloadTest, AnArchivesPartialDeletedBesideTheArchiveCompletesLater) {
  start();
  connectHost();
  const std::string archive = write("home/Downloads/a.zip");
  const std::string partial = startDownload("a.zip.crdownload");
  const auto removed = Clock::now();
  fs::remove(partial);
  ASSERT_TRUE(waitFor(message("DownloadComplete", archive)));
  EXPECT_GE(Clock::now() - removed, std::chrono::seconds(2));
}

TEST_F(MonitorDownloadTest, ASafariDownloadCompletesAsTheNewestDuplicate) {
  write("home/Downloads/X.dmg");
  const std::string newest = write("home/Downloads/X-2.dmg");
  start();
  connectHost();
  const std::string partial = isolated.dir.mkdir("home/Downloads/X.dmg.download");
  ASSERT_TRUE(waitFor(message("DownloadAdd", partial)));
  fs::remove(partial);
  ASSERT_TRUE(waitFor(message("DownloadComplete", newest)));
}

TEST_F(MonitorDownloadTest, ADownloadStartedAndFinishedInOneBatchLeavesNothingStale) {
  start();
  connectHost();
  const std::string partial = write("home/Downloads/quick.bin.crdownload");
  fs::rename(partial, downloads + "/quick.bin");
  ASSERT_TRUE(waitFor(message("DownloadComplete", downloads + "/quick.bin")));
  settle();
  EXPECT_EQ(count(message("DownloadAdd", partial)), 0U);
  EXPECT_EQ(downloadsWithoutMarkers(), Strings{});
}

TEST_F(MonitorDownloadTest, StartFindsPartialFilesAndTheCacheKeepsThoseStillThere) {
  const std::string kept = write("home/Downloads/sub/k.part");
  const std::string gone = write("home/Downloads/g.crdownload");
  write("home/Downloads/done.pdf");
  start();
  Strings found = monitor->downloads();
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, (Strings{gone, kept}));
  monitor->stopMonotor();
  monitor.reset();
  fs::remove(gone);
  start();
  EXPECT_EQ(monitor->downloads(), Strings{kept});
  EXPECT_EQ(PathListCache("Download").read(isolated.dir / "cache/downloadcache.dat").paths,
            Strings{kept});
}

TEST_F(MonitorDownloadTest, BrowserSettingsChangesMoveTheWatchedFolders) {
  start();
  connectHost();
  EXPECT_TRUE(monitor->browserDownloadPaths().empty());
  // Chrome writes its settings beside and renames them into place; its folder is outside home.
  const std::string elsewhere = isolated.dir.mkdir("elsewhere");
  const std::string early = write("elsewhere/early.crdownload");
  const std::string settings = isolated.dir / "home/.config/google-chrome/Default/Preferences";
  write("home/.config/google-chrome/Default/Preferences.tmp",
        R"({"download":{"default_directory":")" + elsewhere + R"("}})");
  fs::rename(settings + ".tmp", settings);
  // Found by the search that follows the change, then watched.
  ASSERT_TRUE(waitFor(message("DownloadAdd", early)));
  EXPECT_EQ(monitor->browserDownloadPaths(),
            (std::map<std::string, std::string>{{"Chrome", elsewhere}}));
  const std::string partial = write("elsewhere/late.crdownload");
  ASSERT_TRUE(waitFor(message("DownloadAdd", partial)));
  fs::rename(partial, elsewhere + "/late");
  ASSERT_TRUE(waitFor(message("DownloadComplete", elsewhere + "/late")));

  fs::remove(settings);
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return monitor->browserDownloadPaths().empty(); },
                                       std::chrono::seconds(15)));
}

}  // namespace monitor_download_test
}  // namespace vexa
