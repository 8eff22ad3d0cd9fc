#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "support/TempDir.h"
#include "util/ApplicationFileTest.h"
#include "vexa/util/Utilities.h"

namespace vexa {
namespace app_walkers_test {

namespace fs = std::filesystem;
using Found = std::set<std::pair<std::string, int>>;

std::vector<std::pair<std::string, int>> found;
void record(const char* path, int kind) { found.emplace_back(path, kind); }

// Accepts ".desktop" files after opening them as an application test would: a walk that hands
// it a FIFO blocks here.
bool desktopFilesOnly(const char* path) {
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd >= 0) ::close(fd);
  const size_t n = std::strlen(path);
  return n > 8 && std::strcmp(path + n - 8, ".desktop") == 0;
}

struct WalkCase {
  const char* name;
  std::vector<const char*> folders;  // made under the root
  std::vector<const char*> files;
  Found expected;  // paths relative to the root
};

class AppWalkersTest : public ::testing::TestWithParam<WalkCase> {
 protected:
  void SetUp() override {
    found.clear();
    ApplicationFileTest::install(desktopFilesOnly);
  }
  Found relative() const {
    Found out;
    for (const auto& [path, kind] : found) out.emplace(path.substr(dir.path().size() + 1), kind);
    return out;
  }
  test::TempDir dir;
};

TEST_P(AppWalkersTest, ReportsApplicationsAndPlainFolders) {
  for (const char* folder : GetParam().folders) dir.mkdir(folder);
  for (const char* file : GetParam().files) dir.write(file, "x");
  std::vector<char> path(dir.path().begin(), dir.path().end());
  path.push_back(0);
  trv_all_app(path.data(), 1, record, nullptr);
  EXPECT_EQ(relative(), GetParam().expected);
  found.clear();
  trv_sub_app((dir.path() + "/").c_str(), record, nullptr);
  EXPECT_EQ(relative(), GetParam().expected) << "trv_sub_app";
}

INSTANTIATE_TEST_SUITE_P(
    Trees, AppWalkersTest,
    ::testing::Values(
        WalkCase{"AppInPlainFolder",
                 {"Games/Chess.app/Contents"},
                 {},
                 {{"Games", 0}, {"Games/Chess.app", 1}}},
        WalkCase{"LocalizedFolderSkipped", {"Utilities.localized/Term.app"}, {}, {}},
        WalkCase{
            "AppInsideBundleNotEntered", {"Outer.app/Contents/Inner.app"}, {}, {{"Outer.app", 1}}},
        WalkCase{"OtherPackagesSkipped", {"Lib.framework/A.app", "P.bundle/B.app"}, {}, {}},
        WalkCase{"DotNames", {".hidden/X.app", ".Y.app", "z.DS_Store/C.app"}, {".DS_Store"}, {}},
        WalkCase{"RegularFilesIgnored", {}, {"notes.txt", "Fake.app"}, {}},
        WalkCase{"ApplicationFile",
                 {"sub"},
                 {"sub/viewer.desktop", "sub/.hidden.desktop"},
                 {{"sub", 0}, {"sub/viewer.desktop", 1}}},
        WalkCase{"DeepTree",
                 {"a/b/c/d/E.app"},
                 {},
                 {{"a", 0}, {"a/b", 0}, {"a/b/c", 0}, {"a/b/c/d", 0}, {"a/b/c/d/E.app", 1}}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(AppWalkersTest, FifosAndLinksAreNeitherOpenedNorEntered) {
  ASSERT_EQ(::mkfifo((dir / "pipe.desktop").c_str(), 0600), 0);
  dir.mkdir("Real.app");
  fs::create_directory_symlink(".", dir / "loop");
  fs::create_directory_symlink("Real.app", dir / "Link.app");
  trv_sub_app(dir.path().c_str(), record, nullptr);
  EXPECT_EQ(relative(), (Found{{"Real.app", 1}}));
}

TEST_F(AppWalkersTest, NothingForAMissingRootOrAFile) {
  trv_sub_app((dir / "missing").c_str(), record, nullptr);
  trv_sub_app(dir.write("file", "x").c_str(), record, nullptr);
  trv_all_app(nullptr, 1, record, nullptr);
  trv_all_app(strdup((dir / "missing").c_str()), 0, record, nullptr);  // frees its path
  EXPECT_TRUE(found.empty());
}

TEST_F(AppWalkersTest, AnUnreadableFolderIsPrintedAndItsSiblingsWalked) {
  if (::geteuid() == 0) GTEST_SKIP() << "root reads every folder";
  dir.mkdir("a.app");
  dir.mkdir("locked/Inside.app");
  dir.mkdir("z/Z.app");
  fs::permissions(dir / "locked", fs::perms::none);
  testing::internal::CaptureStdout();
  trv_sub_app(dir.path().c_str(), record, nullptr);
  const std::string printed = testing::internal::GetCapturedStdout();
  fs::permissions(dir / "locked", fs::perms::owner_all);
  EXPECT_EQ(printed, "Error opening " + dir / "locked" + "\n");
  EXPECT_EQ(relative(), (Found{{"a.app", 1}, {"locked", 0}, {"z", 0}, {"z/Z.app", 1}}));
}

TEST_F(AppWalkersTest, AStopFlagSetByAnotherThreadEndsTheWalk) {
  for (int i = 0; i < 100; ++i) dir.mkdir("f" + std::to_string(i));
  static std::mutex mutex;
  static std::condition_variable changed;
  static bool reached = false, stopped = false;
  static int stop = 0;
  std::thread stopper([] {
    std::unique_lock lock(mutex);
    changed.wait(lock, [] { return reached; });
    std::atomic_ref<int>(stop).store(1, std::memory_order_relaxed);
    stopped = true;
    changed.notify_all();
  });
  trv_sub_app(
      dir.path().c_str(),
      [](const char* path, int kind) {
        record(path, kind);
        std::unique_lock lock(mutex);
        reached = true;
        changed.notify_all();
        changed.wait(lock, [] { return stopped; });
      },
      &stop);
  stopper.join();
  EXPECT_EQ(found.size(), 1U);
}

TEST_F(AppWalkersTest, FourThousandLevelsAreWalkedBeyondPathMax) {
  constexpr int kDepth = 4000;
  std::string relativePath;
  {
    int fd = ::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < kDepth; ++i) {
      ASSERT_EQ(::mkdirat(fd, "d", 0700), 0);
      const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      ::close(fd);
      fd = next;
    }
    ASSERT_EQ(::mkdirat(fd, "Deep.app", 0700), 0);
    ::close(fd);
  }
  trv_sub_app(dir.path().c_str(), record, nullptr);
  ASSERT_EQ(found.size(), static_cast<size_t>(kDepth + 1));
  EXPECT_EQ(found.back().second, 1);
  EXPECT_GT(found.back().first.size(), static_cast<size_t>(PATH_MAX));
  EXPECT_TRUE(found.back().first.ends_with("/d/Deep.app"));
  // TempDir's recursive removal is limited by path length: unmake the tree by descriptor.
  std::string chain = "d";
  for (int i = 1; i < kDepth; ++i) chain += "/d";
  int fd = ::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::vector<int> fds{fd};
  for (int i = 0; i < kDepth; ++i)
    fds.push_back(::openat(fds.back(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ::unlinkat(fds.back(), "Deep.app", AT_REMOVEDIR);
  for (int i = kDepth; i > 0; --i) {
    ::close(fds[i]);
    ::unlinkat(fds[i - 1], "d", AT_REMOVEDIR);
  }
  ::close(fd);
}

}  // namespace app_walkers_test
}  // namespace vexa
