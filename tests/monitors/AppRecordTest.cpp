// Filling application records from bundles, desktop entries and AppImages.
#include <gtest/gtest.h>

#include <filesystem>

#include "monitors/MonitorFixture.h"
#include "support/AppFixtures.h"
#include "vexa/util/AppIdentity.h"
#include "vexa/util/Image.h"
#include "vexa/util/MonitorString.h"

namespace vexa {
namespace app_record_test {

namespace fs = std::filesystem;
using test::BundleRecipe;
using test::makeBundle;
using test::makeDesktopEntry;
using test::makePng;
using test::readFile;

constexpr uint32_t kX86_64 = 0x01000007, kI386 = 7, kPowerPC = 18, kArm64 = 0x0100000C;

class AppRecordTest : public test::MonitorFixture {
 protected:
  bool onIntel() const { return MonitorString::platformFlag() == static_cast<int>(kX86_64); }
};

TEST_F(AppRecordTest, ABundleFillsEveryField) {
  BundleRecipe recipe;
  recipe.iconFile = "Editor.png";
  const std::string path = makeBundle(dir, "home/Applications/Editor.app", recipe);
  makePng(dir, "home/Applications/Editor.app/Contents/Resources/Editor.png", 256, 128);

  auto app = fill(path);
  ASSERT_TRUE(app);
  EXPECT_EQ(app->appName, "Editor");
  EXPECT_EQ(app->appDisplayName, "Editor");
  EXPECT_EQ(app->appVersion, "2.1");
  EXPECT_EQ(app->appPath, path);
  EXPECT_EQ(app->appBundleIdentifer, "com.example.Editor");
  EXPECT_EQ(app->appDomain, "com.example");
  EXPECT_EQ(app->executablePath, path + "/Contents/MacOS/Editor");
  EXPECT_EQ(app->executableArchs, std::vector<int64_t>{kX86_64});
  EXPECT_FALSE(app->isUniBinary);
  EXPECT_FALSE(app->minSupportOSXVersion);
  EXPECT_FALSE(app->needForceRemove);
  EXPECT_EQ(app->appSize, fs::file_size(path + "/Contents/Info.plist") +
                              fs::file_size(path + "/Contents/MacOS/Editor") +
                              fs::file_size(path + "/Contents/Resources/Editor.png"));
  EXPECT_GT(app->createDate, 1600000000u);
  EXPECT_GT(app->lastUseDate, 1600000000u);
  EXPECT_EQ(app->usedCount, 0u);

  // The icon becomes a 64-pixel PNG named after the identifier, in proportion.
  EXPECT_EQ(app->appIconCachePath, cache() + "/com.example.Editor.png");
  auto thumbnail = Image::load(cache() + "/com.example.Editor.png");
  ASSERT_TRUE(thumbnail);
  EXPECT_EQ(thumbnail->width(), 64);
  EXPECT_EQ(thumbnail->height(), 32);
}

TEST_F(AppRecordTest, WhatIsNotAReportableApplication) {
  BundleRecipe noIdentifier;
  noIdentifier.identifier = "";
  EXPECT_FALSE(fill(makeBundle(dir, "home/Applications/Anon.app", noIdentifier)));
  EXPECT_FALSE(fill(dir / "home/Applications/Missing.app"));
  dir.mkdir("home/Applications/Empty.app/Contents");
  EXPECT_FALSE(fill(dir / "home/Applications/Empty.app"));
  dir.write("home/Applications/Broken.app/Contents/Info.plist", "<plist><dict><key>");
  EXPECT_FALSE(fill(dir / "home/Applications/Broken.app"));
  EXPECT_FALSE(fill(dir.write("home/notes.txt", "text")));
  EXPECT_FALSE(
      fill(makeDesktopEntry(dir, "sys/applications/hidden.desktop", "H", "Hidden=true\n")));
  EXPECT_FALSE(
      fill(makeDesktopEntry(dir, "sys/applications/helper.desktop", "H", "NoDisplay=true\n")));
  EXPECT_FALSE(fill(dir.write("sys/applications/link.desktop",
                              "[Desktop Entry]\nType=Link\nName=L\nURL=https://example.com\n")));

  // The process never reports itself.
  const std::string own = AppIdentity::name();
  AppIdentity::setName("com.example.Editor");
  EXPECT_FALSE(fill(makeBundle(dir, "home/Applications/Self.app")));
  AppIdentity::setName(own);
  EXPECT_TRUE(fill(dir / "home/Applications/Self.app"));
}

TEST_F(AppRecordTest, PlatformSupportFollowsTheSystemVersionAndTheProcessor) {
  BundleRecipe newer;
  newer.minimumSystem = "999.1";
  auto app = fill(makeBundle(dir, "home/Applications/Newer.app", newer));
  ASSERT_TRUE(app);
  EXPECT_EQ(app->minSupportOSXVersion, "999.1");
  EXPECT_FALSE(app->platformSupport);

  // Numbers compare by value: "1.10" is older than any running kernel above 1.
  BundleRecipe older;
  older.minimumSystem = "1.10";
  older.cpuTypes = {};
  app = fill(makeBundle(dir, "home/Applications/Older.app", older));
  ASSERT_TRUE(app);
  EXPECT_TRUE(app->platformSupport);

  BundleRecipe fat;
  fat.cpuTypes = {kX86_64, kArm64};
  app = fill(makeBundle(dir, "home/Applications/Fat.app", fat));
  ASSERT_TRUE(app);
  EXPECT_TRUE(app->isUniBinary);
  EXPECT_EQ(app->executableArchs, (std::vector<int64_t>{kX86_64, kArm64}));
  EXPECT_TRUE(app->platformSupport);

  if (!onIntel()) GTEST_SKIP() << "the processor rules below are those of an x86-64 machine";
  for (const auto& [cpu, supported] :
       {std::pair{kI386, true}, {kPowerPC, false}, {kArm64, false}}) {
    BundleRecipe thin;
    thin.cpuTypes = {cpu};
    const std::string path =
        makeBundle(dir, "home/Applications/" + std::to_string(cpu) + ".app", thin);
    EXPECT_EQ(fill(path)->platformSupport, supported) << cpu;
  }
}

TEST_F(AppRecordTest, IconLookupOrderAndTheDefaultIcon) {
  // A name without extension means an .icns file (decoded by its contents).
  BundleRecipe bare;
  bare.identifier = "com.example.Bare";
  bare.iconFile = "AppIcon";
  const std::string barePath = makeBundle(dir, "home/Applications/Bare.app", bare);
  makePng(dir, "home/Applications/Bare.app/Contents/Resources/AppIcon.icns", 32, 32);
  EXPECT_EQ(fill(barePath)->appIconCachePath, cache() + "/com.example.Bare.png");
  auto bareIcon = Image::load(cache() + "/com.example.Bare.png");
  ASSERT_TRUE(bareIcon);
  EXPECT_EQ(bareIcon->width(), 64);

  // A missing icon falls back to any value naming an .icns file, then to the default icon.
  BundleRecipe second;
  second.identifier = "com.example.Second";
  second.iconFile = "Missing.png";
  const std::string secondPath = makeBundle(dir, "home/Applications/Second.app", second);
  std::string plist = readFile(secondPath + "/Contents/Info.plist");
  plist.insert(plist.find("</dict>"), "<key>Artwork</key><string>art.icns</string>");
  dir.write("home/Applications/Second.app/Contents/Info.plist", plist);
  makePng(dir, "home/Applications/Second.app/Contents/Resources/art.icns", 16, 16);
  EXPECT_EQ(fill(secondPath)->appIconCachePath, cache() + "/com.example.Second.png");

  BundleRecipe none;
  none.identifier = "com.example.None";
  auto app = fill(makeBundle(dir, "home/Applications/None.app", none));
  EXPECT_EQ(app->appIconCachePath, cache() + "/default.png");
  auto generic = Image::load(cache() + "/default.png");
  ASSERT_TRUE(generic);
  EXPECT_LE(generic->width(), 64);
  EXPECT_LE(generic->height(), 64);

  // An icon key whose value is not a name ends the lookup with nothing.
  dir.write("home/Applications/Odd.app/Contents/Info.plist",
            "<plist><dict><key>CFBundleIdentifier</key><string>com.example.Odd</string>"
            "<key>CFBundleIcons</key><dict/></dict></plist>");
  app = fill(dir / "home/Applications/Odd.app");
  ASSERT_TRUE(app);
  EXPECT_FALSE(app->appIconCachePath);
}

TEST_F(AppRecordTest, ThumbnailsAreNeverRewrittenNorWrittenOutsideTheCache) {
  BundleRecipe recipe;
  recipe.iconFile = "Editor.png";
  const std::string path = makeBundle(dir, "home/Applications/Editor.app", recipe);
  makePng(dir, "home/Applications/Editor.app/Contents/Resources/Editor.png", 128, 128);
  ASSERT_TRUE(fill(path));
  const std::string thumbnail = cache() + "/com.example.Editor.png";
  dir.write("cache/com.example.Editor.png", "kept as it is");
  ASSERT_TRUE(fill(path));
  EXPECT_EQ(readFile(thumbnail), "kept as it is");

  BundleRecipe sneaky;
  sneaky.identifier = "../../escape";
  sneaky.iconFile = "Editor.png";
  const std::string sneakyPath = makeBundle(dir, "home/Applications/Sneaky.app", sneaky);
  makePng(dir, "home/Applications/Sneaky.app/Contents/Resources/Editor.png", 8, 8);
  auto app = fill(sneakyPath);
  ASSERT_TRUE(app);
  EXPECT_EQ(app->appIconCachePath, cache() + "/.._.._escape.png");
  EXPECT_FALSE(fs::exists(dir / "escape.png"));
}

TEST_F(AppRecordTest, DesktopEntriesUseTheirIdThemeIconAndProgram) {
  dir.write("sys/applications/kde/viewer.desktop",
            "[Desktop Entry]\nType=Application\nName=Viewer\nName[de]=Betrachter\n"
            "Version=1.5\nX-AppVersion=3.2\nIcon=viewer\nExec=sh -c true\n");
  makePng(dir, "sys/icons/hicolor/48x48/apps/viewer.png", 48, 48);
  makePng(dir, "sys/icons/hicolor/128x128/apps/viewer.png", 128, 128);
  test::ScopedEnv language("LANGUAGE", "de"), lang("LANG", "de_DE.UTF-8"), all("LC_ALL", {}),
      messages("LC_MESSAGES", {});

  auto app = fill(dir / "sys/applications/kde/viewer.desktop");
  ASSERT_TRUE(app);
  EXPECT_EQ(app->appBundleIdentifer, "kde-viewer");
  EXPECT_EQ(app->appName, "Viewer");
  EXPECT_EQ(app->appDisplayName, "Betrachter");
  EXPECT_EQ(app->appVersion, "3.2");
  ASSERT_TRUE(app->executablePath);
  EXPECT_EQ(fs::path(*app->executablePath).filename(), "sh");
  EXPECT_FALSE(app->executableArchs->empty());
  EXPECT_TRUE(app->platformSupport);
  // The larger bitmap is preferred when the wanted size is missing.
  EXPECT_EQ(app->appIconCachePath, cache() + "/kde-viewer.png");
  auto themed = Image::load(cache() + "/kde-viewer.png");
  ASSERT_TRUE(themed);
  EXPECT_EQ(themed->width(), 64);

  // Without X-AppVersion no version ("Version" is the entry format's); a program that cannot
  // be found leaves no path.
  app = fill(dir.write("home/.local/share/applications/org.example.Tool.desktop",
                       "[Desktop Entry]\nType=Application\nName=Tool\nVersion=1.5\n"
                       "TryExec=no-such-program-here\nExec=no-such-program-here\n"));
  ASSERT_TRUE(app);
  EXPECT_EQ(app->appBundleIdentifer, "org.example.Tool");
  EXPECT_EQ(app->appDomain, "org.example.Tool.");
  EXPECT_FALSE(app->appVersion);
  EXPECT_FALSE(app->executablePath);
  EXPECT_EQ(app->executableArchs, std::vector<int64_t>{});
  EXPECT_EQ(app->appIconCachePath, cache() + "/default.png");
}

TEST_F(AppRecordTest, AppImagesAreReadWithoutRunningThem) {
  const std::string image = test::makeAppImage(dir, "home/Applications/Viewer-x86_64.AppImage");
  if (image.empty()) GTEST_SKIP() << "mksquashfs is not installed";
  test::ScopedEnv tmp("TMPDIR", dir.mkdir("tmp"));
  EXPECT_TRUE(monitor->isApplication(image));
  auto app = fill(image);
  ASSERT_TRUE(app);
  EXPECT_EQ(app->appBundleIdentifer, "org.example.Viewer");
  EXPECT_EQ(app->appDomain, "org.example.Viewer.");
  EXPECT_EQ(app->appName, "Viewer");
  EXPECT_EQ(app->appVersion, "4.0.1");
  EXPECT_EQ(app->executablePath, image);
  EXPECT_EQ(app->appSize, fs::file_size(image));
  EXPECT_EQ(app->appIconCachePath, cache() + "/org.example.Viewer.png");
  auto icon = Image::load(cache() + "/org.example.Viewer.png");
  ASSERT_TRUE(icon);
  EXPECT_EQ(icon->width(), 64);
  if (onIntel()) {
    EXPECT_EQ(app->executableArchs, std::vector<int64_t>{kX86_64});
  }
  // Nothing is left behind in the temporary folder.
  EXPECT_TRUE(fs::is_empty(dir / "tmp"));

  // The mark alone is not enough: an ELF file with the name but no image is not one.
  std::string plain = readFile("/bin/true");
  plain[8] = 'A';
  plain[9] = 'I';
  plain[10] = 2;
  EXPECT_FALSE(fill(dir.write("home/Applications/Fake.AppImage", plain)));
  EXPECT_FALSE(fill(dir.write("home/Applications/Text.AppImage", "just text")));
}

TEST_F(AppRecordTest, OddBytesStillMakeARecordThatTravels) {
  auto app = fill(makeDesktopEntry(dir, "sys/applications/cafe.desktop", "Caf\xe9 \xff"));
  ASSERT_TRUE(app);
  EXPECT_EQ(app->appName, "Caf\xef\xbf\xbd \xef\xbf\xbd");
  EXPECT_FALSE(app->toJSON().empty());
  // A path the host could not be told is not a record at all.
  EXPECT_FALSE(fill(makeBundle(dir, "home/Applications/Caf\xe9.app")));
}

TEST_F(AppRecordTest, ApplicationsAreFoundByIdentifier) {
  const std::string editor = makeBundle(dir, "home/Applications/Editor.app");
  const std::string viewer = makeDesktopEntry(dir, "sys/applications/org.example.Viewer.desktop");
  EXPECT_EQ(MonitorApplication::pathForAppWithIdentifier("com.example.Editor"), editor);
  EXPECT_EQ(MonitorApplication::pathForAppWithIdentifier("org.example.Viewer"), viewer);
  EXPECT_FALSE(MonitorApplication::pathForAppWithIdentifier("org.example.Missing"));
  EXPECT_FALSE(MonitorApplication::pathForAppWithIdentifier(""));
}

TEST_F(AppRecordTest, MetadataAndKinds) {
  EXPECT_FALSE(MonitorApplication::dicForMDItem(dir / "nothing", std::vector<std::string>{}));
  EXPECT_FALSE(MonitorApplication::dicForMDItem(dir.path(), std::nullopt));
  const std::string bundle = makeBundle(dir, "home/Applications/Editor.app");
  auto attributes =
      MonitorApplication::dicForMDItem(bundle, std::vector<std::string>{"kMDItemKind", "unknown"});
  ASSERT_TRUE(attributes);
  EXPECT_EQ(*attributes, (nlohmann::json{{"kMDItemKind", "application"}}));

  EXPECT_TRUE(monitor->isApplication(bundle));
  EXPECT_FALSE(monitor->isApplication(dir / "home/Applications"));
  EXPECT_FALSE(monitor->isApplication(dir.write("home/a.txt", "x")));
  EXPECT_TRUE(monitor->isApplication(makeDesktopEntry(dir, "home/v.desktop")));
  EXPECT_FALSE(
      monitor->isApplication(makeDesktopEntry(dir, "home/h.desktop", "H", "NoDisplay=true\n")));
  // Gone: judged by the name alone.
  EXPECT_TRUE(monitor->isApplication(dir / "home/Gone.app"));
  EXPECT_TRUE(monitor->isApplication(dir / "home/gone.desktop"));
  EXPECT_TRUE(monitor->isApplication(dir / "home/Gone-x86_64.AppImage"));
  EXPECT_FALSE(monitor->isApplication(dir / "home/gone.txt"));
}

}  // namespace app_record_test
}  // namespace vexa
