#include "vexa/util/StartManager.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/TempDir.h"
#include "util/LoginItemRules.h"
#include "util/LoginItems.h"
#include "util/MainBundle.h"

namespace vexa {
namespace start_manager_test {

// A login-item list in memory that counts what is asked of it.
class FakeLoginItems : public LoginItems {
 public:
  bool available() override { return isAvailable; }
  std::vector<Item> list() override {
    ++listed;
    return items;
  }
  void append(const std::string& path) override {
    items.push_back({"item" + std::to_string(items.size()), path});
  }
  void remove(const Item& item) override {
    std::erase_if(items, [&](const Item& i) { return i.handle == item.handle; });
  }

  bool isAvailable = true;
  int listed = 0;
  std::vector<Item> items;
};

const std::string kProgram = "/opt/Example/example";

TEST(LoginItemRulesTest, InstallingTwiceAddsOneEntryAndRemovingTakesEveryOne) {
  FakeLoginItems items;
  LoginItemRules::install(items, kProgram);
  LoginItemRules::install(items, kProgram);
  ASSERT_EQ(items.items.size(), 1u);
  EXPECT_TRUE(LoginItemRules::has(items, kProgram));

  // Others added the same program twice more, and a copy of it elsewhere.
  items.append(kProgram);
  items.append("/home/me/Example/example");
  items.append(kProgram);
  LoginItemRules::remove(items, kProgram);
  ASSERT_EQ(items.items.size(), 1u);
  EXPECT_EQ(items.items[0].path, "/home/me/Example/example");  // someone else's
  EXPECT_FALSE(LoginItemRules::has(items, kProgram));
  EXPECT_FALSE(LoginItemRules::has(items, kProgram + "/"));  // byte-equal paths only
}

TEST(LoginItemRulesTest, AnUnavailableListIsNeitherReadNorChanged) {
  FakeLoginItems items;
  items.items.push_back({"kept", kProgram});
  items.isAvailable = false;
  EXPECT_FALSE(LoginItemRules::has(items, kProgram));
  LoginItemRules::install(items, "/usr/bin/other");
  LoginItemRules::remove(items, kProgram);
  EXPECT_EQ(items.listed, 0);
  EXPECT_EQ(items.items.size(), 1u);
  // Nor is an empty path ever looked for.
  items.isAvailable = true;
  LoginItemRules::install(items, "");
  EXPECT_EQ(items.items.size(), 1u);
}

// This test program is the main bundle: the entry written starts it.
TEST(StartManagerTest, TheValueIsTheLastSetAndTheEntryFollowsIt) {
  test::TempDir dir;
  test::ScopedEnv config("XDG_CONFIG_HOME", dir / "config");
  test::ScopedEnv system("XDG_CONFIG_DIRS", dir / "xdg");
  test::ScopedEnv image("APPIMAGE", std::nullopt);
  ASSERT_FALSE(MainBundle::path().empty());
  StartManager manager;
  EXPECT_FALSE(manager.launchAtLogin());
  EXPECT_FALSE(StartManager::hasDaemon());

  manager.setLaunchAtLogin(true);
  manager.setLaunchAtLogin(true);
  EXPECT_TRUE(manager.launchAtLogin());
  EXPECT_TRUE(StartManager::hasDaemon());
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "config/autostart"), {}), 1);

  // The value is never read back from the list.
  std::filesystem::remove_all(dir / "config/autostart");
  EXPECT_TRUE(manager.launchAtLogin());
  EXPECT_FALSE(StartManager::hasDaemon());
  StartManager::installDaemon();
  manager.setLaunchAtLogin(false);
  EXPECT_FALSE(manager.launchAtLogin());
  EXPECT_FALSE(StartManager::hasDaemon());
}

TEST(MainBundleTest, AnAppImageIsStartedAsTheImageByItsRealPath) {
  test::TempDir dir;
  const std::string image = dir.write("Tool.AppImage", "not really");
  const std::string real = std::filesystem::canonical(image).string();
  dir.mkdir("sub");
  std::filesystem::create_symlink(image, dir / "Link.AppImage");
  for (const std::string& given :
       {image, dir / "sub/../Tool.AppImage", dir / "Link.AppImage", dir / ".//Tool.AppImage"}) {
    test::ScopedEnv set("APPIMAGE", given);
    EXPECT_EQ(MainBundle::path(), real) << given;
  }
  test::ScopedEnv gone("APPIMAGE", dir / "missing.AppImage");
  EXPECT_NE(MainBundle::path(), dir / "missing.AppImage");
  EXPECT_EQ(MainBundle::path(), std::filesystem::canonical("/proc/self/exe").string());
}

}  // namespace start_manager_test
}  // namespace vexa
