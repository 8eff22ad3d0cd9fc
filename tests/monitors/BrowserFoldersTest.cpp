#include "monitors/BrowserFolders.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>

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

struct FolderCase {
  const char* name;
  std::function<void(const Home&)> make;
  std::function<Table(const Home&)> expected;
};

class BrowserFoldersTest : public ::testing::TestWithParam<FolderCase> {};

TEST_P(BrowserFoldersTest, ReadsEachBrowsersSetting) {
  Home home;
  GetParam().make(home);
  EXPECT_EQ(home.folders.read(), GetParam().expected(home));
}

INSTANTIATE_TEST_SUITE_P(
    Table, BrowserFoldersTest,
    ::testing::Values(
        FolderCase{"NoBrowser", [](const Home&) {}, [](const Home&) { return Table{}; }},
        FolderCase{"ChromeDefaultProfile",
                   [](const Home& h) {
                     h.write(".config/google-chrome/Default/Preferences", chromePrefs("/srv/dl"));
                   },
                   [](const Home&) {
                     return Table{{"Chrome", "/srv/dl"}};
                   }},
        FolderCase{"ChromeLastUsedProfile",
                   [](const Home& h) {
                     h.write(".config/google-chrome/Local State",
                             R"({"profile":{"last_used":"Profile 2"}})");
                     h.write(".config/google-chrome/Default/Preferences", chromePrefs("/a"));
                     h.write(".config/google-chrome/Profile 2/Preferences", chromePrefs("~/b/"));
                   },
                   [](const Home& h) {
                     return Table{{"Chrome", h.at("b")}};
                   }},
        FolderCase{"ChromeLastUsedFolderMissingFallsBackToDefault",
                   [](const Home& h) {
                     h.write(".config/chromium/Local State",
                             R"({"profile":{"last_used":"Profile 9"}})");
                     h.write(".config/chromium/Default/Preferences", chromePrefs("/a"));
                   },
                   [](const Home&) {
                     return Table{{"Chromium", "/a"}};
                   }},
        FolderCase{"ChromeProfileNameEscapingIsIgnored",
                   [](const Home& h) {
                     h.write(".config/chromium/Local State", R"({"profile":{"last_used":".."}})");
                     h.write(".config/chromium/Default/Preferences", chromePrefs("/a"));
                     h.write(".config/Preferences", chromePrefs("/evil"));
                   },
                   [](const Home&) {
                     return Table{{"Chromium", "/a"}};
                   }},
        FolderCase{"CorruptJsonMeansDownloads",
                   [](const Home& h) {
                     h.write(".config/google-chrome/Default/Preferences", "{\"download\":");
                   },
                   [](const Home& h) {
                     return Table{{"Chrome", h.at("Downloads")}};
                   }},
        FolderCase{"UnusableValuesMeanDownloads",
                   [](const Home& h) {
                     h.write(".config/google-chrome/Default/Preferences", chromePrefs("rel/x"));
                     h.write(".config/chromium/Default/Preferences",
                             chromePrefs("/" + std::string(100000, 'a')));
                     h.write(".config/opera/Preferences", R"({"download":{}})");
                   },
                   [](const Home& h) {
                     return Table{{"Chrome", h.at("Downloads")},
                                  {"Chromium", h.at("Downloads")},
                                  {"Opera", h.at("Downloads")}};
                   }},
        FolderCase{"PipeFolderAndLoopAsSettingsFiles",
                   [](const Home& h) {
                     fs::create_directories(h.at(".config/google-chrome/Default"));
                     ::mkfifo(h.at(".config/google-chrome/Default/Preferences").c_str(), 0600);
                     fs::create_directories(h.at(".config/opera/Preferences"));
                     fs::create_directories(h.at(".config/chromium/Default"));
                     fs::create_symlink(h.at(".config/chromium/Default/Preferences"),
                                        h.at(".config/chromium/Default/Preferences"));
                   },
                   [](const Home& h) {
                     // The loop does not exist; the pipe and folder exist and cannot be read.
                     return Table{{"Chrome", h.at("Downloads")}, {"Opera", h.at("Downloads")}};
                   }},
        FolderCase{
            "OperaDefaultProfile",
            [](const Home& h) { h.write(".config/opera/Default/Preferences", chromePrefs("/o")); },
            [](const Home&) {
              return Table{{"Opera", "/o"}};
            }},
        FolderCase{"FirefoxInstallSectionWins",
                   [](const Home& h) {
                     h.write(".mozilla/firefox/profiles.ini",
                             "[Profile0]\nPath=a.default\nDefault=1\n"
                             "[Install123]\nDefault=b.release\n[Profile1]\nPath=b.release\n");
                     h.write(".mozilla/firefox/a.default/prefs.js",
                             "user_pref(\"browser.download.folderList\", 2);\n"
                             "user_pref(\"browser.download.dir\", \"/a\");\n");
                     h.write(".mozilla/firefox/b.release/prefs.js",
                             "user_pref(\"browser.download.folderList\", 2);\r\n"
                             "user_pref(\"browser.download.dir\", \"/b\");\r\n");
                   },
                   [](const Home&) {
                     return Table{{"Firefox", "/b"}};
                   }},
        FolderCase{"FirefoxDefaultOneAndDesktop",
                   [](const Home& h) {
                     h.write("snap/firefox/common/.mozilla/firefox/profiles.ini",
                             "[Profile0]\nPath=x\n[Profile1]\nPath=y\nDefault=1\n");
                     h.write("snap/firefox/common/.mozilla/firefox/y/prefs.js",
                             "user_pref(\"browser.download.folderList\", 0);");
                   },
                   [](const Home& h) {
                     return Table{{"Firefox", h.at("Desktop")}};
                   }},
        FolderCase{"FirefoxAbsoluteProfileWithoutPrefs",
                   [](const Home& h) {
                     h.write(".mozilla/firefox/profiles.ini",
                             "[Profile0]\nPath=/abs/p\n"
                             "IsRelative=0\n");
                     h.write(".var/app/org.mozilla.firefox/.mozilla/firefox/profiles.ini",
                             "[Profile0]\nPath=never\n");
                   },
                   // The profile's prefs.js does not exist: no entry.
                   [](const Home&) { return Table{}; }},
        FolderCase{"FirefoxProfileMissingOrEscaping",
                   [](const Home& h) {
                     h.write(".mozilla/firefox/profiles.ini", "[Profile0]\nPath=../../x\n");
                     h.write("x/prefs.js", "user_pref(\"browser.download.folderList\", 0);");
                   },
                   [](const Home&) { return Table{}; }},
        FolderCase{"FirefoxPipeAsPrefs",
                   [](const Home& h) {
                     h.write(".mozilla/firefox/profiles.ini", "[Profile0]\nPath=p\n");
                     fs::create_directories(h.at(".mozilla/firefox/p"));
                     ::mkfifo(h.at(".mozilla/firefox/p/prefs.js").c_str(), 0600);
                   },
                   // Never opened for reading: the file is there, its setting unreadable.
                   [](const Home& h) {
                     return Table{{"Firefox", h.at("Downloads")}};
                   }},
        FolderCase{"FirefoxPipeAsProfilesIni",
                   [](const Home& h) {
                     fs::create_directories(h.at(".mozilla/firefox/p"));
                     ::mkfifo(h.at(".mozilla/firefox/profiles.ini").c_str(), 0600);
                     h.write(".mozilla/firefox/p/prefs.js",
                             "user_pref(\"browser.download.folderList\", 0);");
                   },
                   [](const Home&) { return Table{}; }},
        FolderCase{"FirefoxPrefsWithoutFolderList",
                   [](const Home& h) {
                     h.write(".mozilla/firefox/profiles.ini", "[Profile0]\nPath=p\n");
                     h.write(".mozilla/firefox/p/prefs.js",
                             "user_pref(\"browser.download.dir\", \"/ignored\");");
                   },
                   [](const Home& h) {
                     return Table{{"Firefox", h.at("Downloads")}};
                   }}),
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
  EXPECT_EQ(BrowserDownloads::kSafari, 's' << 24 | 'a' << 16 | 'b' << 8 | 'w');
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
