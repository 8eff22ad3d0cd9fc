#include "monitors/BrowserFolders.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "monitors/BrowserDownloads.h"
#include "support/TempDir.h"

namespace vexa {
namespace browser_folders_test {

namespace fs = std::filesystem;
using Table = std::map<std::string, std::string>;

// A home folder the test fills with browser settings.
struct Home {
  Home()
      : folders({dir / "home", dir / "home/.config", dir / "home/.local/share/Preferences",
                 dir / "home/Downloads", dir / "home/Desktop"}) {}
  std::string at(const std::string& relative) const { return dir / ("home/" + relative); }
  void write(const std::string& relative, const std::string& text) const {
    dir.write("home/" + relative, text);
  }
  test::TempDir dir;
  BrowserFolders folders;
};

std::string chromePrefs(const std::string& folder) {
  return R"({"download":{"default_directory":")" + folder + R"("}})";
}

// Special contents of a file to make: a named pipe, a folder, a link to itself.
const std::string kFifo = "<fifo>", kFolder = "<folder>", kLoop = "<loop>";
const std::string kFolderList0 = "user_pref(\"browser.download.folderList\", 0);";

struct FolderCase {
  const char* name;
  std::vector<std::pair<std::string, std::string>> files;  // below the home folder
  Table expected;                                          // "~/" for the home folder
};

class BrowserFoldersTest : public ::testing::TestWithParam<FolderCase> {};

TEST_P(BrowserFoldersTest, ReadsEachBrowsersSetting) {
  Home home;
  for (const auto& [relative, text] : GetParam().files) {
    const std::string path = home.at(relative);
    if (text == kFifo || text == kLoop) fs::create_directories(fs::path(path).parent_path());
    if (text == kFifo) {
      ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    } else if (text == kFolder) {
      fs::create_directories(path);
    } else if (text == kLoop) {
      fs::create_symlink(path, path);
    } else {
      home.write(relative, text);
    }
  }
  Table expected;
  for (const auto& [browser, folder] : GetParam().expected) {
    expected[browser] = folder.starts_with("~/") ? home.at(folder.substr(2)) : folder;
  }
  EXPECT_EQ(home.folders.read(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, BrowserFoldersTest,
    ::testing::Values(
        FolderCase{"NoBrowser", {}, {}},
        FolderCase{"ChromeDefaultProfile",
                   {{".config/google-chrome/Default/Preferences", chromePrefs("/srv/dl")}},
                   {{"Chrome", "/srv/dl"}}},
        FolderCase{
            "ChromeLastUsedProfile",
            {{".config/google-chrome/Local State", R"({"profile":{"last_used":"Profile 2"}})"},
             {".config/google-chrome/Default/Preferences", chromePrefs("/a")},
             {".config/google-chrome/Profile 2/Preferences", chromePrefs("~/b/")}},
            {{"Chrome", "~/b"}}},
        FolderCase{"ChromeLastUsedFolderMissingFallsBackToDefault",
                   {{".config/chromium/Local State", R"({"profile":{"last_used":"Profile 9"}})"},
                    {".config/chromium/Default/Preferences", chromePrefs("/a")}},
                   {{"Chromium", "/a"}}},
        FolderCase{"ChromeProfileNameEscapingIsIgnored",
                   {{".config/chromium/Local State", R"({"profile":{"last_used":".."}})"},
                    {".config/chromium/Default/Preferences", chromePrefs("/a")},
                    {".config/Preferences", chromePrefs("/evil")}},
                   {{"Chromium", "/a"}}},
        FolderCase{"CorruptJsonMeansDownloads",
                   {{".config/google-chrome/Default/Preferences", "{\"download\":"}},
                   {{"Chrome", "~/Downloads"}}},
        FolderCase{
            "UnusableValuesMeanDownloads",
            {{".config/google-chrome/Default/Preferences", chromePrefs("rel/x")},
             {".config/chromium/Default/Preferences", chromePrefs("/" + std::string(100000, 'a'))},
             {".config/opera/Preferences", R"({"download":{}})"}},
            {{"Chrome", "~/Downloads"}, {"Chromium", "~/Downloads"}, {"Opera", "~/Downloads"}}},
        // The loop does not exist; the pipe and folder exist and cannot be read.
        FolderCase{"PipeFolderAndLoopAsSettingsFiles",
                   {{".config/google-chrome/Default/Preferences", kFifo},
                    {".config/opera/Preferences", kFolder},
                    {".config/chromium/Default/Preferences", kLoop}},
                   {{"Chrome", "~/Downloads"}, {"Opera", "~/Downloads"}}},
        FolderCase{"OperaDefaultProfile",
                   {{".config/opera/Default/Preferences", chromePrefs("/o")}},
                   {{"Opera", "/o"}}},
        FolderCase{"FirefoxInstallSectionWins",
                   {{".mozilla/firefox/profiles.ini",
                     "[Profile0]\nPath=a.default\nDefault=1\n"
                     "[Install123]\nDefault=b.release\n[Profile1]\nPath=b.release\n"},
                    {".mozilla/firefox/a.default/prefs.js",
                     "user_pref(\"browser.download.folderList\", 2);\n"
                     "user_pref(\"browser.download.dir\", \"/a\");\n"},
                    {".mozilla/firefox/b.release/prefs.js",
                     "user_pref(\"browser.download.folderList\", 2);\r\n"
                     "user_pref(\"browser.download.dir\", \"/b\");\r\n"}},
                   {{"Firefox", "/b"}}},
        FolderCase{"FirefoxDefaultOneAndDesktop",
                   {{"snap/firefox/common/.mozilla/firefox/profiles.ini",
                     "[Profile0]\nPath=x\n[Profile1]\nPath=y\nDefault=1\n"},
                    {"snap/firefox/common/.mozilla/firefox/y/prefs.js", kFolderList0}},
                   {{"Firefox", "~/Desktop"}}},
        // The profile's prefs.js does not exist: no entry.
        FolderCase{"FirefoxAbsoluteProfileWithoutPrefs",
                   {{".mozilla/firefox/profiles.ini", "[Profile0]\nPath=/abs/p\nIsRelative=0\n"},
                    {".var/app/org.mozilla.firefox/.mozilla/firefox/profiles.ini",
                     "[Profile0]\nPath=never\n"}},
                   {}},
        FolderCase{"FirefoxProfileMissingOrEscaping",
                   {{".mozilla/firefox/profiles.ini", "[Profile0]\nPath=../../x\n"},
                    {"x/prefs.js", kFolderList0}},
                   {}},
        // Never opened for reading: the file is there, its setting unreadable.
        FolderCase{"FirefoxPipeAsPrefs",
                   {{".mozilla/firefox/profiles.ini", "[Profile0]\nPath=p\n"},
                    {".mozilla/firefox/p/prefs.js", kFifo}},
                   {{"Firefox", "~/Downloads"}}},
        FolderCase{"FirefoxPipeAsProfilesIni",
                   {{".mozilla/firefox/profiles.ini", kFifo},
                    {".mozilla/firefox/p/prefs.js", kFolderList0}},
                   {}},
        FolderCase{
            "FirefoxPrefsWithoutFolderList",
            {{".mozilla/firefox/profiles.ini", "[Profile0]\nPath=p\n"},
             {".mozilla/firefox/p/prefs.js", "user_pref(\"browser.download.dir\", \"/ignored\");"}},
            {{"Firefox", "~/Downloads"}}}),
    [](const auto& c) { return std::string(c.param.name); });

TEST(BrowserFoldersSettingsFiles, ListTheFilesThatChooseAndHoldTheSetting) {
  Home home;
  home.write(".config/google-chrome/Local State", R"({"profile":{"last_used":"P"}})");
  fs::create_directories(home.at(".config/google-chrome/P"));
  const auto files = home.folders.settingsFiles();
  for (const char* file :
       {".config/google-chrome/P/Preferences", ".config/google-chrome/Local State",
        ".config/chromium/Default/Preferences", ".mozilla/firefox/profiles.ini",
        ".config/opera/Preferences"}) {
    EXPECT_NE(std::find(files.begin(), files.end(), home.at(file)), files.end()) << file;
  }
  // Events are sorted out by name before the table is consulted: every file it reads passes.
  home.write(".mozilla/firefox/profiles.ini", "[Profile0]\nPath=p.default\nDefault=1\n");
  for (const auto& file : home.folders.settingsFiles()) {
    EXPECT_TRUE(BrowserDownloads::mayMatter(file)) << file;
  }
}

struct DuplicateCase {
  const char* name;
  std::vector<std::string> present;  // files made ("/" ending: folders)
  std::string asked;
  std::optional<std::string> expected;
};

class SafariDuplicateTest : public ::testing::TestWithParam<DuplicateCase> {};

TEST_P(SafariDuplicateTest, FindsTheNewestDuplicate) {
  test::TempDir dir;
  for (const auto& name : GetParam().present) {
    if (name.back() == '/') {
      dir.mkdir(name);
    } else {
      dir.write(name, "");
    }
  }
  auto found = BrowserDownloads::getLatelyPathForSafariDl(dir / GetParam().asked);
  EXPECT_EQ(found, GetParam().expected ? std::optional(dir / *GetParam().expected) : std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SafariDuplicateTest,
    ::testing::Values(DuplicateCase{"Missing", {}, "X.dmg", std::nullopt},
                      DuplicateCase{"Alone", {"X.dmg"}, "X.dmg", "X.dmg"},
                      DuplicateCase{"Second", {"X.dmg", "X-2.dmg"}, "X.dmg", "X-2.dmg"},
                      DuplicateCase{
                          "Third", {"X.dmg", "X-2.dmg", "X-3.dmg", "X-5.dmg"}, "X.dmg", "X-3.dmg"},
                      DuplicateCase{"FolderAlone", {"X/", "X-3/"}, "X", "X"},
                      // A folder's names are chained, and so is the answer.
                      DuplicateCase{"FolderSecond", {"X/", "X-2/"}, "X", "X-2-3-2"},
                      DuplicateCase{"FolderThird", {"X/", "X-2/", "X-2-3/"}, "X", "X-2-3-4-3"}),
    [](const auto& c) { return std::string(c.param.name); });

TEST(BrowserDownloadsNames, ExtensionsAndTypes) {
  EXPECT_TRUE(BrowserDownloads::isDownloads("/d/a.pdf.crdownload"));
  EXPECT_TRUE(BrowserDownloads::isDownloads("/d/Unconfirmed 12.crdownload"));
  EXPECT_FALSE(BrowserDownloads::isDownloads("/d/.crdownload"));
  EXPECT_FALSE(BrowserDownloads::isDownloads("/d.part/x"));
  EXPECT_FALSE(BrowserDownloads::isDownloads("/d/a.PART"));
  EXPECT_EQ(BrowserDownloads::browserType("/d/a.download"), BrowserDownloads::kSafari);
  EXPECT_EQ(BrowserDownloads::browserType("/d/a.part"), BrowserDownloads::kFirefox);
  EXPECT_EQ(BrowserDownloads::browserType("/d/a.crdownload"), BrowserDownloads::kChrome);
  EXPECT_EQ(BrowserDownloads::browserType("/d/a.opdownload"), BrowserDownloads::kOpera);
  EXPECT_EQ(BrowserDownloads::browserType("/d/a.zip"), BrowserDownloads::kUnknown);
  EXPECT_EQ(BrowserDownloads::withoutExtension("/d/a.tar.gz"), "/d/a.tar");
  EXPECT_EQ(BrowserDownloads::withoutExtension("/d.x/a"), "/d.x/a");
  for (const char* path : {"/d/a.part", "/h/.config/opera/Preferences", "/p/Safari",
                           "/p/Safari/Downloads.plist", "/h/f/profiles.ini", "Local State"}) {
    EXPECT_TRUE(BrowserDownloads::mayMatter(path)) << path;
  }
  for (const char* path :
       {"/d/a.pdf", "/h/Preferences.tmp", "/h/Preferences/x", "/p/Safari2", "/", ""}) {
    EXPECT_FALSE(BrowserDownloads::mayMatter(path)) << path;
  }
}

}  // namespace browser_folders_test
}  // namespace vexa
