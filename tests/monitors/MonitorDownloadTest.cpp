#include "vexa/monitors/MonitorDownload.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

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
  ~MonitorDownloadTest() override { release(monitor); }
  void start() {
    monitor = MonitorDownload::create(*dispatch, *server);
    monitor->setCacheFolderPath(isolated.dir / "cache");
    monitor->startMonitor();
  }
  std::string write(const std::string& relative, const std::string& text = "x") {
    return isolated.dir.write(relative, text);
  }
  // Waits for a new download started after the events under test.
  void settle() {
    LiveMonitorFixture::settle("home/Downloads/marker-" + std::to_string(++markers) + ".opdownload",
                               "DownloadAdd");
  }

  const std::string downloads;
  std::shared_ptr<MonitorDownload> monitor;
  int markers = 0;
};

enum class End { kRename, kRemove, kTrash };

struct FinishCase {
  const char* name;
  Strings existing;     // in Downloads before the monitor starts
  std::string partial;  // made in Downloads ("/" ending: a folder, as Safari's)
  End end;
  std::string renamed;    // the name a rename gives
  std::string completed;  // what completes ("" for nothing)
  bool delayed;           // an archive is judged after the browser had time to unpack it
};

void PrintTo(const FinishCase& c, std::ostream* os) { *os << c.name; }

class DownloadFinishTest : public MonitorDownloadTest,
                           public ::testing::WithParamInterface<FinishCase> {};

TEST_P(DownloadFinishTest, IsAddedThenRemovedAndCompletesOnceOrNever) {
  const FinishCase& c = GetParam();
  for (const auto& name : c.existing) write("home/Downloads/" + name);
  start();
  connectHost();
  std::string partial = downloads + "/" + c.partial;
  if (partial.ends_with('/')) {
    partial.pop_back();
    fs::create_directories(partial);
  } else {
    write("home/Downloads/" + c.partial, "part");
  }
  ASSERT_TRUE(waitFor(message("DownloadAdd", partial)));
  EXPECT_EQ(monitor->downloads(), Strings{partial});
  const auto ended = Clock::now();
  if (c.end == End::kRename) fs::rename(partial, downloads + "/" + c.renamed);
  if (c.end == End::kRemove) fs::remove(partial);
  if (c.end == End::kTrash) fs::rename(partial, isolated.trash() + "/" + c.partial);
  const json completed = message("DownloadComplete", downloads + "/" + c.completed);
  if (!c.completed.empty()) {
    ASSERT_TRUE(waitFor(completed));
    if (c.delayed) {
      EXPECT_GE(Clock::now() - ended, std::chrono::seconds(2));
    }
  }
  ASSERT_TRUE(waitFor(message("DownloadRemove", partial)));
  settle();
  size_t completions = 0;
  for (const auto& m : messages()) completions += m["name"] == "DownloadComplete";
  EXPECT_EQ(completions, c.completed.empty() ? 0U : 1U);
  EXPECT_EQ(count(completed), completions);
  EXPECT_EQ(withoutMarkers(monitor->downloads()), Strings{});
}

INSTANTIATE_TEST_SUITE_P(
    Ends, DownloadFinishTest,
    ::testing::Values(
        FinishCase{"ChromeRename", {}, "f.pdf.crdownload", End::kRename, "f.pdf", "f.pdf", false},
        FinishCase{"ChromeUnconfirmedUnderItsFinalName",
                   {},
                   "Unconfirmed 12.crdownload",
                   End::kRename,
                   "a.pdf",
                   "a.pdf",
                   false},
        FinishCase{"FirefoxReplacesItsPlaceholder",
                   {"g.zip"},
                   "g.zip.part",
                   End::kRename,
                   "g.zip",
                   "g.zip",
                   true},
        FinishCase{"Cancelled", {}, "c.iso.crdownload", End::kRemove, "", "", false},
        FinishCase{"MovedIntoTheTrash", {}, "t.pdf.part", End::kTrash, "", "", false},
        FinishCase{"ArchivesPartialDeletedBesideTheArchive",
                   {"a.zip"},
                   "a.zip.crdownload",
                   End::kRemove,
                   "",
                   "a.zip",
                   true},
        FinishCase{"SafariAsTheNewestDuplicate",
                   {"X.dmg", "X-2.dmg"},
                   "X.dmg.download/",
                   End::kRemove,
                   "",
                   "X-2.dmg",
                   false}),
    [](const auto& c) { return std::string(c.param.name); });

TEST_F(MonitorDownloadTest, ADownloadStartedAndFinishedInOneBatchLeavesNothingStale) {
  start();
  connectHost();
  const std::string partial = write("home/Downloads/quick.bin.crdownload");
  fs::rename(partial, downloads + "/quick.bin");
  ASSERT_TRUE(waitFor(message("DownloadComplete", downloads + "/quick.bin")));
  settle();
  EXPECT_EQ(count(message("DownloadAdd", partial)), 0U);
  EXPECT_EQ(withoutMarkers(monitor->downloads()), Strings{});
}

TEST_F(MonitorDownloadTest, StartFindsPartialFilesAndTheCacheKeepsThoseStillThere) {
  const std::string kept = write("home/Downloads/sub/k.part");
  const std::string gone = write("home/Downloads/g.crdownload");
  write("home/Downloads/done.pdf");
  start();
  Strings found = monitor->downloads();
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, (Strings{gone, kept}));
  release(monitor);
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
