#include "vexa/monitors/WatchApplication.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "support/AppFixtures.h"
#include "support/IsolatedHome.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/Utilities.h"

namespace vexa {
namespace watch_application_test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

struct Added : ApplicationsWatchDelegate {
  void appAdded(const std::string& path) override { paths.push_back(path); }
  std::vector<std::string> paths;
};

std::vector<std::string> sorted(std::vector<std::string> list) {
  std::sort(list.begin(), list.end());
  return list;
}

class WatchApplicationTest : public ::testing::Test {
 protected:
  WatchApplicationTest() { watch->setDelegate(added); }
  ~WatchApplicationTest() override { watch->stopWatch(); }
  bool heard(size_t calls) {
    return RunLoop::main().runUntil([&] { return added->paths.size() >= calls; }, 10s);
  }

  test::IsolatedHome isolated;
  const test::TempDir& dir = isolated.dir;
  std::string root = dir / "sys/applications";
  int stop = 0;
  std::shared_ptr<Added> added = std::make_shared<Added>();
  std::shared_ptr<WatchApplication> watch = WatchApplication::shared().shared_from_this();
};

TEST_F(WatchApplicationTest, TheInventoryAtStartIsSilentAndKeepsWhatTheWalkFinds) {
  ASSERT_EQ(watch->appRootPath(), root);
  test::makeBundle(dir, "sys/applications/Editor.app");
  test::makeBundle(dir, "sys/applications/Games/Chess2.app");
  test::makeBundle(dir, "sys/applications/Utilities.localized/Hidden.app");
  test::makeDesktopEntry(dir, "sys/applications/viewer.desktop", "Viewer");
  const std::string image = test::makeAppImage(dir, "sys/applications/Tool.AppImage");
  test::makeDesktopEntry(dir, "sys/applications/web.desktop", "Safari");  // a system name
  test::makeBundle(dir, "sys/applications/SAFARI.app");                   // in another case
  watch->startWatch(&stop);
  std::vector<std::string> apps{root + "/Editor.app", root + "/Games/Chess2.app",
                                root + "/viewer.desktop"};
  if (!image.empty()) apps.push_back(image);
  EXPECT_EQ(sorted(watch->watchApps()), sorted(apps));
  EXPECT_EQ(watch->watchFolders(), std::vector<std::string>{root + "/Games"});
  EXPECT_TRUE(added->paths.empty());
}

TEST_F(WatchApplicationTest, AWriteReportsOnlyNewApplicationsAndARemovalNothing) {
  const std::string old = test::makeBundle(dir, "sys/applications/Old.app");
  watch->startWatch(&stop);
  const std::string fresh = test::makeDesktopEntry(dir, "sys/applications/fresh.desktop", "Fresh");
  ASSERT_TRUE(heard(1));
  EXPECT_EQ(added->paths, std::vector<std::string>{fresh});
  fs::remove_all(old);
  ASSERT_TRUE(RunLoop::main().runUntil(
      [&] { return watch->watchApps() == std::vector<std::string>{fresh}; }, 10s));
  EXPECT_EQ(added->paths.size(), 1U);
}

TEST_F(WatchApplicationTest, StopWatchForgetsAndSetsTheStopFlag) {
  test::makeBundle(dir, "sys/applications/Old.app");
  watch->startWatch(&stop);
  watch->stopWatch();
  EXPECT_EQ(stop, 1);
  EXPECT_TRUE(watch->watchApps().empty());
  // A walk with the flag set finds nothing.
  applicationcallback(nullptr, 1);
  trv_all_app(root.data(), 1, applicationcallback, &stop);
  EXPECT_TRUE(watch->watchApps().empty());
}

}  // namespace watch_application_test
}  // namespace vexa
