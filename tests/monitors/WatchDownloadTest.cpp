#include "vexa/monitors/WatchDownload.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "support/IsolatedHome.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"
#include "vexa/util/Utilities.h"

namespace vexa {
namespace watch_download_test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

struct Recorder : WatchDownloadDelegate {
  void downloadFileCompleted(const std::string& path) override { calls.push_back(path); }
  Strings calls;  // main thread only
};

// The inotify watches this process holds, read from the kernel's account of its descriptors.
size_t inotifyWatches() {
  size_t watches = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    if (fs::read_symlink(entry.path(), error).string() != "anon_inode:inotify") continue;
    std::ifstream info("/proc/self/fdinfo/" + entry.path().filename().string());
    for (std::string line; std::getline(info, line);) {
      if (line.rfind("inotify wd:", 0) == 0) ++watches;
    }
  }
  return watches;
}

size_t openDescriptors() {
  return static_cast<size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

std::string chromePrefs(const std::string& folder) {
  return R"({"download":{"default_directory":")" + folder + R"("}})";
}

// The watcher over real inotify in an isolated home whose Downloads folder is the only download
// folder until a test writes browser settings.
class WatchDownloadTest : public ::testing::Test {
 protected:
  WatchDownloadTest() { watch->setDelegate(recorder); }
  ~WatchDownloadTest() override { watch->stopWatch(); }

  void start() { watch->startWatch(&stop); }
  bool until(const std::function<bool()>& done, std::chrono::milliseconds timeout = 10s) {
    return RunLoop::main().runUntil(done, timeout);
  }
  size_t count(const std::string& path) const {
    return static_cast<size_t>(std::count(recorder->calls.begin(), recorder->calls.end(), path));
  }
  bool heard(const std::string& path) {
    return until([&] { return count(path) > 0; });
  }
  bool watched(const std::string& path) {
    return until([&] {
      auto files = watch->partialFiles();
      return std::find(files.begin(), files.end(), path) != files.end();
    });
  }
  // A partial file written into `folder` and watched.
  std::string partial(const std::string& folder, const std::string& name) {
    const std::string path = folder + "/" + name;
    std::ofstream(path) << "part";
    EXPECT_TRUE(watched(path)) << path;
    return path;
  }
  // Waits until a Chrome download started and finished after the events under test has been
  // told: whatever they were to tell came first.
  void settle(const std::string& folder) {
    const std::string marker = folder + "/marker-" + std::to_string(++markers);
    fs::rename(partial(folder, fs::path(marker).filename().string() + ".crdownload"), marker);
    ASSERT_TRUE(heard(marker));
  }
  // Writes the way browsers do: a new file renamed over the old.
  void replace(const std::string& relative, const std::string& text) {
    isolated.dir.write(relative + ".tmp", text);
    fs::rename(isolated.dir / (relative + ".tmp"), isolated.dir / relative);
  }

  test::IsolatedHome isolated;
  const std::string downloads = isolated.dir.mkdir("home/Downloads");
  int stop = 0;
  int markers = 0;
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  std::shared_ptr<WatchDownload> watch = WatchDownload::create();
};

// A partial file renamed to its final name: told once with the new name, which is not left
// watched.
struct Rename {
  const char* partial;
  const char* done;
};

class WatchDownloadRenameTest : public WatchDownloadTest,
                                public ::testing::WithParamInterface<Rename> {};

TEST_P(WatchDownloadRenameTest, IsToldOnceAndNotLeftWatched) {
  start();
  const size_t before = inotifyWatches();
  const std::string from = partial(downloads, GetParam().partial);
  EXPECT_EQ(inotifyWatches(), before + 1);
  const std::string to = downloads + "/" + GetParam().done;
  fs::rename(from, to);
  ASSERT_TRUE(heard(to));
  settle(downloads);
  EXPECT_EQ(count(to), 1U);
  EXPECT_EQ(recorder->calls.size(), 2U);  // and the marker
  EXPECT_EQ(watch->partialFiles(), Strings{});
  // The marker's watch is given back right after its call-back.
  EXPECT_TRUE(until([&] { return inotifyWatches() == before; })) << inotifyWatches();
}

INSTANTIATE_TEST_SUITE_P(Browsers, WatchDownloadRenameTest,
                         ::testing::Values(Rename{"f.pdf.crdownload", "f.pdf"},
                                           Rename{"g.iso.part", "g.iso"},
                                           Rename{"h.deb.opdownload", "h.deb"},
                                           Rename{"line\nbreak.txt.crdownload", "line\nbreak.txt"},
                                           Rename{"not-\xff-utf8.crdownload", "not-\xff-utf8"}));

TEST_F(WatchDownloadTest, AnUnconfirmedDownloadNamedByTheBrowserIsStillADownload) {
  start();
  const std::string unconfirmed = partial(downloads, "Unconfirmed 41.crdownload");
  fs::rename(unconfirmed, downloads + "/f.pdf.crdownload");
  ASSERT_TRUE(watched(downloads + "/f.pdf.crdownload"));
  fs::rename(downloads + "/f.pdf.crdownload", downloads + "/f.pdf");
  ASSERT_TRUE(heard(downloads + "/f.pdf"));
  settle(downloads);
  EXPECT_EQ(recorder->calls, (Strings{downloads + "/f.pdf", downloads + "/marker-1"}));
}

// A Firefox partial file deleted: done when its final name exists, archives after 2 s.
struct Deletion {
  const char* partial;
  bool finalExists;
  bool told;
};

class WatchDownloadDeletionTest : public WatchDownloadTest,
                                  public ::testing::WithParamInterface<Deletion> {};

TEST_P(WatchDownloadDeletionTest, IsJudgedByTheFinalName) {
  start();
  const std::string from = partial(downloads, GetParam().partial);
  const std::string done = from.substr(0, from.size() - std::string(".part").size());
  if (GetParam().finalExists) std::ofstream(done) << "done";
  const auto deleted = std::chrono::steady_clock::now();
  fs::remove(from);
  // An archive waits 2 s: a marker archive deleted after it is told after it.
  const std::string marker = partial(downloads, "marker.zip.part");
  std::ofstream(downloads + "/marker.zip") << "done";
  fs::remove(marker);
  ASSERT_TRUE(heard(downloads + "/marker.zip"));
  EXPECT_EQ(count(done), GetParam().told ? 1U : 0U);
  if (GetParam().told && done.size() > 4 && done.substr(done.size() - 4) == ".zip") {
    EXPECT_GE(std::chrono::steady_clock::now() - deleted, 2s);
  }
  EXPECT_EQ(watch->partialFiles(), Strings{});
}

INSTANTIATE_TEST_SUITE_P(Firefox, WatchDownloadDeletionTest,
                         ::testing::Values(Deletion{"g.zip.part", true, true},
                                           Deletion{"g.zip.part", false, false},
                                           Deletion{"g.pdf.part", true, true},
                                           Deletion{"g.pdf.part", false, false}));

TEST_F(WatchDownloadTest, APartialFileMovedToTheTrashIsDroppedWithoutACallBack) {
  start();
  const size_t before = inotifyWatches();
  const std::string from = partial(downloads, "f.pdf.crdownload");
  fs::rename(from, isolated.trash() + "/f.pdf.crdownload");
  ASSERT_TRUE(until([&] { return watch->partialFiles().empty(); }));
  settle(downloads);
  EXPECT_EQ(recorder->calls, Strings{downloads + "/marker-1"});
  EXPECT_TRUE(until([&] { return inotifyWatches() == before; })) << inotifyWatches();
}

TEST_F(WatchDownloadTest, SafariFinishesAsTheNewestDuplicate) {
  isolated.dir.mkdir("home/Downloads/X.dmg.download");
  start();
  ASSERT_TRUE(watched(downloads + "/X.dmg.download"));
  std::ofstream(downloads + "/X.dmg") << "old";
  std::ofstream(downloads + "/X-2.dmg") << "new";
  fs::remove(downloads + "/X.dmg.download");
  ASSERT_TRUE(heard(downloads + "/X-2.dmg"));
  settle(downloads);
  EXPECT_EQ(recorder->calls, (Strings{downloads + "/X-2.dmg", downloads + "/marker-1"}));
}

// A Safari archive not unpacked yet waits for Safari's history to say where it went.
struct History {
  const char* name;
  std::string plist;
  bool told;
};

class WatchDownloadSafariHistoryTest : public WatchDownloadTest,
                                       public ::testing::WithParamInterface<History> {};

TEST_P(WatchDownloadSafariHistoryTest, ReleasesTheWaitingArchive) {
  const std::string safari = isolated.dir.mkdir("home/.local/share/Safari");
  isolated.dir.mkdir("home/Downloads/pics.zip.download");
  start();
  ASSERT_TRUE(watched(downloads + "/pics.zip.download"));
  std::ofstream(downloads + "/pics.zip") << "zip";
  fs::remove(downloads + "/pics.zip.download");
  ASSERT_TRUE(until([&] { return watch->safariDlsCache() == Strings{downloads + "/pics.zip"}; }));
  std::ofstream(downloads + "/pics") << "unpacked";
  replace("home/.local/share/Safari/Downloads.plist", GetParam().plist);
  // The history is read on a worker: told, or the cache let go of the archive.
  ASSERT_TRUE(until([&] { return watch->safariDlsCache().empty(); }));
  if (GetParam().told) {
    ASSERT_TRUE(heard(downloads + "/pics"));
  }
  settle(downloads);
  EXPECT_EQ(count(downloads + "/pics"), GetParam().told ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Plists, WatchDownloadSafariHistoryTest,
    ::testing::Values(
        History{"Named",
                "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                "<key>DownloadHistory</key><array>"
                "<dict><key>DownloadEntryPath</key><string>~/Downloads/pics.zip</string>"
                "<key>DownloadEntryPostPath</key><string>~/Downloads/pics</string></dict>"
                "</array></dict></plist>",
                true},
        History{"Malformed", "<?xml version=\"1.0\"?><plist><dict><key>Download", false},
        History{"NotAList", "<plist><dict><key>DownloadHistory</key><true/></dict></plist>",
                false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(WatchDownloadTest, AScanTakesPartialFilesAndSafariFoldersOnly) {
  isolated.dir.mkdir("home/Downloads/x.download");
  isolated.dir.mkdir("home/Downloads/x.bin");
  isolated.dir.mkdir("home/Downloads/folder.crdownload");  // not a bundle: not Safari's
  isolated.dir.write("home/Downloads/y.crdownload", "part");
  isolated.dir.write("home/Downloads/.hidden.part", "part");
  isolated.dir.write("home/Downloads/done.pdf", "pdf");
  // Never opened: a pipe would block the scan.
  ASSERT_EQ(::mkfifo((downloads + "/a.crdownload").c_str(), 0600), 0);
  fs::create_symlink(downloads + "/y.crdownload", downloads + "/link.part");
  start();
  EXPECT_EQ(watch->partialFiles(),
            (Strings{downloads + "/x.download", downloads + "/y.crdownload"}));

  // The same through the plain function, in directory order.
  static Strings found;
  found.clear();
  trv_sub_download(
      downloads.c_str(), [](const char* path) { found.emplace_back(path); }, nullptr);
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, (Strings{downloads + "/x.download", downloads + "/y.crdownload"}));
}

TEST_F(WatchDownloadTest, AScanLogsTheNamesItSeesAndPrintsNothing) {
  isolated.dir.write("home/Downloads/seen.txt", "x");
  Strings logged;
  std::mutex loggedLock;
  SystemLog::setSink([&](const std::string& line) {
    std::lock_guard lock(loggedLock);
    logged.push_back(line);
  });
  ::testing::internal::CaptureStdout();
  trv_sub_download(downloads.c_str(), nullptr, nullptr);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  SystemLog::setSink(nullptr);
  EXPECT_EQ(logged, Strings{"seen.txt"});
}

TEST_F(WatchDownloadTest, ABadFolderScansToNothing) {
  static Strings found;
  found.clear();
  auto record = [](const char* path) { found.emplace_back(path); };
  isolated.dir.write("file.part", "x");
  for (const std::string& folder : {isolated.dir / "missing", isolated.dir / "file.part",
                                    std::string(), std::string(5000, 'a')}) {
    trv_sub_download(folder.c_str(), record, nullptr);
  }
  trv_sub_download(nullptr, record, nullptr);
  EXPECT_EQ(found, Strings{});
}

TEST_F(WatchDownloadTest, TheStopFlagSetFromAnotherThreadEndsAScanAtTheNextEntry) {
  const std::string folder = isolated.dir.mkdir("many");
  for (int i = 0; i < 100000; ++i) {
    const int fd = ::open((folder + "/" + std::to_string(i) + ".part").c_str(),
                          O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0);
    ::close(fd);
  }
  static std::mutex mutex;
  static std::condition_variable changed;
  static int calls = 0;
  static bool stopped = false;
  static int flag = 0;
  calls = 0, stopped = false, flag = 0;
  std::thread stopper([] {
    std::unique_lock lock(mutex);
    changed.wait(lock, [] { return calls > 0; });
    std::atomic_ref<int>(flag).store(1, std::memory_order_relaxed);
    stopped = true;
    changed.notify_all();
  });
  // The first entry hands over to the other thread and waits until it has raised the flag.
  trv_sub_download(
      folder.c_str(),
      [](const char*) {
        std::unique_lock lock(mutex);
        ++calls;
        changed.notify_all();
        changed.wait_for(lock, 10s, [] { return stopped; });
      },
      &flag);
  stopper.join();
  EXPECT_TRUE(stopped);
  EXPECT_EQ(calls, 1);
}

TEST_F(WatchDownloadTest, NewSettingsMoveTheWatchToTheNewFolder) {
  const std::string first = isolated.dir.mkdir("first");
  const std::string second = isolated.dir.mkdir("second");
  isolated.dir.write("home/.config/google-chrome/Default/Preferences", chromePrefs(first));
  start();
  const std::string profile = isolated.dir / "home/.config/google-chrome/Default";
  EXPECT_EQ(watch->downloadFolders(), Strings{first});
  auto folders = watch->preferencesFolders();
  EXPECT_TRUE(std::find(folders.begin(), folders.end(), profile) != folders.end());

  replace("home/.config/google-chrome/Default/Preferences", chromePrefs(second));
  ASSERT_TRUE(until([&] { return watch->downloadFolders() == Strings{second}; }));
  // Heard only through a watch on the new folder; the old one says nothing.
  settle(second);
  std::ofstream(first + "/old.crdownload") << "part";
  fs::rename(first + "/old.crdownload", first + "/old");
  settle(second);
  EXPECT_EQ(recorder->calls, (Strings{second + "/marker-1", second + "/marker-2"}));
}

TEST_F(WatchDownloadTest, ABrowsersFirstRunIsNoticed) {
  start();
  EXPECT_EQ(watch->downloadFolders(), Strings{downloads});
  const std::string elsewhere = isolated.dir.mkdir("elsewhere");
  isolated.dir.mkdir("home/.config/google-chrome/Default");
  replace("home/.config/google-chrome/Default/Preferences", chromePrefs(elsewhere));
  ASSERT_TRUE(until([&] { return watch->downloadFolders() == Strings{elsewhere}; }));
  auto folders = watch->preferencesFolders();
  EXPECT_TRUE(std::find(folders.begin(), folders.end(),
                        isolated.dir / "home/.config/google-chrome/Default") != folders.end());
  settle(elsewhere);
}

TEST_F(WatchDownloadTest, APipeNamedLikeTheSettingsIsNeverRead) {
  isolated.dir.mkdir("home/.config/google-chrome/Default");
  const std::string prefs = isolated.dir / "home/.config/google-chrome/Default/Preferences";
  ASSERT_EQ(::mkfifo(prefs.c_str(), 0600), 0);
  start();
  EXPECT_EQ(watch->downloadFolders(), Strings{downloads});
  isolated.dir.write("home/.config/google-chrome/Default/other", "x");
  settle(downloads);
}

TEST_F(WatchDownloadTest, AThousandPartialFilesHoldWatchesButNoDescriptors) {
  for (int i = 0; i < 1000; ++i) {
    isolated.dir.write("home/Downloads/" + std::to_string(i) + ".crdownload", "part");
  }
  const size_t descriptors = openDescriptors();
  const size_t before = inotifyWatches();
  start();
  EXPECT_EQ(watch->partialFiles().size(), 1000U);
  EXPECT_GE(inotifyWatches(), before + 1000);
  EXPECT_LE(openDescriptors(), descriptors + 2);
  watch->stopWatch();
  EXPECT_EQ(watch->partialFiles(), Strings{});
  EXPECT_EQ(inotifyWatches(), before);
  EXPECT_EQ(stop, 1);
}

TEST_F(WatchDownloadTest, ADownloadFolderRemovedIsDropped) {
  start();
  fs::remove_all(downloads);
  ASSERT_TRUE(until([&] { return watch->downloadFolders().empty(); }));
}

}  // namespace watch_download_test
}  // namespace vexa
