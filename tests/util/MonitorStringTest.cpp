#include "vexa/util/MonitorString.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/TempDir.h"
#include "util/XdgDirs.h"
#include "vexa/util/AppIdentity.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace monitor_string_test {

using test::ScopedEnv;
using test::TempDir;

TEST(MonitorStringTest, OsVersionDropsEveryTrailingZeroAndFallsBackTo10_0) {
  std::vector<std::string> logged;
  SystemLog::setSink([&](const std::string& m) { logged.push_back(m); });
  const std::pair<const char*, const char*> cases[] = {
      {"10.9.0", "10.9"},      {"6.1.0-26-amd64", "6.1"}, {"6.18.44-fc-v769", "6.18.44"},
      {"5.0.0", "5"},          {"4.19", "4.19"},          {"7", "7"},
      {"6.10.0-rc1+", "6.10"}, {"garbage", "10.0"},       {"", "10.0"}};
  for (auto [release, expected] : cases) {
    EXPECT_EQ(MonitorString::osVersionFromRelease(release), expected) << release;
  }
  SystemLog::setSink(nullptr);
  ASSERT_EQ(logged.size(), 2u);
  EXPECT_EQ(logged[0], "Unable to obtain system version: 0");
  // The running kernel's version is well formed.
  EXPECT_NE(MonitorString::osVersion(), "10.0");
  EXPECT_GT(MonitorString::getMajarVersion(MonitorString::osVersion()), 2);
}

TEST(MonitorStringTest, VersionComponents) {
  EXPECT_EQ(MonitorString::getMajarVersion("10.9.5"), 10);
  EXPECT_EQ(MonitorString::getMinorVersion("10.9.5"), 9);
  EXPECT_EQ(MonitorString::getBugFixVersion("10.9.5"), 5);
  EXPECT_EQ(MonitorString::getMajarVersion("12"), 12);
  EXPECT_EQ(MonitorString::getMinorVersion("12"), 0);
  EXPECT_EQ(MonitorString::getBugFixVersion("12.1"), 0);
  EXPECT_EQ(MonitorString::getMajarVersion(""), 0);
}

TEST(MonitorStringTest, PlatformFlags) {
  EXPECT_EQ(MonitorString::platformFlag("i386"), 7);
  EXPECT_EQ(MonitorString::platformFlag("X86_64"), 16777223);
  EXPECT_EQ(MonitorString::platformFlag("ppc"), 18);
  EXPECT_EQ(MonitorString::platformFlag("PPC64"), 16777234);
  EXPECT_EQ(MonitorString::platformFlag("aarch64"), 0);
  EXPECT_FALSE(MonitorString::platform().empty());
}

TEST(MonitorStringTest, FoldersFollowTheEnvironment) {
  TempDir home;
  ScopedEnv h("HOME", home.path());
  ScopedEnv d("XDG_DATA_HOME", std::nullopt);
  ScopedEnv c("XDG_CONFIG_HOME", std::nullopt);
  ScopedEnv t("TMPDIR", home / "tmp/");
  EXPECT_EQ(MonitorString::userHomePath(), home.path());
  EXPECT_EQ(MonitorString::userTrashPath(), home / ".local/share/Trash/files");
  EXPECT_EQ(MonitorString::userApplicationPath(), home / ".local/share/applications");
  EXPECT_EQ(MonitorString::userPreferencesPath(), home / ".local/share/Preferences");
  EXPECT_EQ(MonitorString::userDownlodsPath(), home / "Downloads");
  EXPECT_EQ(MonitorString::userMoviePath(), home / "Videos");
  EXPECT_EQ(MonitorString::tempPath(), home / "tmp");
  EXPECT_EQ(MonitorString::iosBackupFoloder(),
            home / "Library/Application Support/MobileSync/Backup");

  // A relative XDG value is ignored, as the base-directory rules say.
  {
    ScopedEnv relative("XDG_DATA_HOME", "relative/data");
    EXPECT_EQ(MonitorString::userTrashPath(), home / ".local/share/Trash/files");
  }
  ScopedEnv d2("XDG_DATA_HOME", home / "data");
  ScopedEnv c2("XDG_CONFIG_HOME", home / "config");
  home.write("config/user-dirs.dirs",
             "# written by xdg-user-dirs-update\n"
             "XDG_DOWNLOAD_DIR=\"$HOME/Téléchargements\"\n"
             "XDG_MUSIC_DIR=\"/srv/music/\"\n"
             "XDG_PICTURES_DIR=\"relative\"\n"
             "XDG_DESKTOP_DIR=\"$HOME/Desk top\"\n");
  EXPECT_EQ(MonitorString::userTrashPath(), home / "data/Trash/files");
  EXPECT_EQ(MonitorString::userDownlodsPath(), home / "Téléchargements");
  EXPECT_EQ(MonitorString::userMusicPath(), "/srv/music");
  EXPECT_EQ(MonitorString::userPicturePath(), home / "Pictures");  // relative entries skipped
  EXPECT_EQ(MonitorString::userDeskTopPath(), home / "Desk top");
  EXPECT_EQ(MonitorString::userDocumentPath(), home / "Documents");
}

TEST(MonitorStringTest, ApplicationPathIsTheFirstExistingSystemApplicationsFolder) {
  TempDir root;
  root.mkdir("second/applications");
  root.mkdir("third/applications");
  ScopedEnv dirs("XDG_DATA_DIRS", root / "first:" + root / "second:" + root / "third");
  EXPECT_EQ(MonitorString::applicationPath(), root / "second/applications");
  ScopedEnv none("XDG_DATA_DIRS", root / "missing");
  EXPECT_FALSE(MonitorString::applicationPath());
}

TEST(MonitorStringTest, CacheFolderIsCreatedAndReplacesAFile) {
  TempDir home;
  ScopedEnv d("XDG_DATA_HOME", home / "deep/data");
  AppIdentity::setName("com.tarnwick.Vexa-Sweeper");
  auto folder = MonitorString::cacheFolder();
  ASSERT_TRUE(folder);
  EXPECT_EQ(*folder, home / "deep/data/com.tarnwick.Vexa-Sweeper");
  EXPECT_TRUE(std::filesystem::is_directory(*folder));

  std::filesystem::remove(*folder);
  home.write("deep/data/com.tarnwick.Vexa-Sweeper", "a file in the way");
  ASSERT_TRUE(MonitorString::cacheFolder());
  EXPECT_TRUE(std::filesystem::is_directory(*folder));
}

TEST(MonitorStringTest, GenerateSolePathFindsTheFirstFreeName) {
  TempDir dir;
  EXPECT_EQ(MonitorString::generateSolePath(dir / "a.txt"), dir / "a.txt");
  dir.write("a.txt", "");
  dir.write("a(1).txt", "");
  EXPECT_EQ(MonitorString::generateSolePath(dir / "a.txt"), dir / "a(2).txt");
  dir.write("noext", "");
  EXPECT_EQ(MonitorString::generateSolePath(dir / "noext"), dir / "noext(1)");
  dir.mkdir("Foo.app");
  EXPECT_EQ(MonitorString::generateSolePath(dir / "Foo.app/"), dir / "Foo(1).app");
  dir.write(".profile", "");
  EXPECT_EQ(MonitorString::generateSolePath(dir / ".profile"), dir / ".profile(1)");
  dir.write("archive.tar.gz", "");
  EXPECT_EQ(MonitorString::generateSolePath(dir / "archive.tar.gz"), dir / "archive.tar(1).gz");
  // A dangling symbolic link occupies its name too.
  std::filesystem::create_symlink(dir / "nowhere", dir / "link");
  EXPECT_EQ(MonitorString::generateSolePath(dir / "link"), dir / "link(1)");
}

TEST(MonitorStringTest, HiddenFlagLivesInTheParentsHiddenList) {
  TempDir dir;
  EXPECT_FALSE(MonitorString::pathInvisibility(dir / "missing", true));
  dir.write("keep", "");
  dir.write("secret", "");
  dir.write(".hidden", "keep\n");
  EXPECT_TRUE(MonitorString::pathInvisibility(dir / "secret", true));
  EXPECT_TRUE(MonitorString::isPathHidden(dir / "secret"));
  EXPECT_EQ(test::readFile(dir / ".hidden"), "keep\nsecret\n");
  EXPECT_TRUE(MonitorString::pathInvisibility(dir / "secret", true));  // already: no duplicate
  EXPECT_EQ(test::readFile(dir / ".hidden"), "keep\nsecret\n");
  EXPECT_TRUE(MonitorString::pathInvisibility(dir / "secret", false));
  EXPECT_FALSE(MonitorString::isPathHidden(dir / "secret"));
  EXPECT_EQ(test::readFile(dir / ".hidden"), "keep\n");
  EXPECT_TRUE(MonitorString::pathInvisibility(dir / "keep", false));
  EXPECT_FALSE(std::filesystem::exists(dir / ".hidden"));  // an empty list is removed

  dir.write(".dotfile", "");
  EXPECT_TRUE(MonitorString::pathInvisibility(dir / ".dotfile", true));
  EXPECT_FALSE(MonitorString::pathInvisibility(dir / ".dotfile", false));
  // A folder the user cannot write keeps its list: the call fails, nothing crashes.
  if (geteuid() != 0) {
    dir.mkdir("locked");
    dir.write("locked/item", "");
    std::filesystem::permissions(
        dir / "locked", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    EXPECT_FALSE(MonitorString::pathInvisibility(dir / "locked/item", true));
  }
}

// The list is read leniently, replaced whole, and never read or written through a link.
TEST(MonitorStringTest, HiddenListsAreReplacedWholeAndNeverFollowed) {
  TempDir dir;
  dir.write("item", "");
  dir.mkdir("folder");
  dir.write(".hidden", "a\n\nb");  // a blank line, no final newline
  EXPECT_TRUE(MonitorString::pathInvisibility(dir / "item", true));
  EXPECT_EQ(test::readFile(dir / ".hidden"), "a\nb\nitem\n");
  EXPECT_TRUE(MonitorString::pathInvisibility(dir / "folder/", true));  // its own name
  EXPECT_TRUE(MonitorString::isPathHidden(dir / "folder/"));
  EXPECT_EQ(test::readFile(dir / ".hidden"), "a\nb\nitem\nfolder\n");
  struct stat st {};
  ASSERT_EQ(::stat((dir / ".hidden").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{".hidden", "folder", "item"}));  // no temporaries

  // A list that is a link: not read (isPathHidden), not replaced, nothing copied out of it.
  TempDir other;
  dir.write("linked/thing", "");
  const std::string outside = other.write("list", "thing\nprivate\n");
  std::filesystem::create_symlink(outside, dir / "linked/.hidden");
  EXPECT_FALSE(MonitorString::isPathHidden(dir / "linked/thing"));
  for (bool hidden : {true, false}) {
    EXPECT_FALSE(MonitorString::pathInvisibility(dir / "linked/thing", hidden));
    EXPECT_TRUE(std::filesystem::is_symlink(dir / "linked/.hidden"));
    EXPECT_EQ(test::readFile(outside), "thing\nprivate\n");
  }
  EXPECT_TRUE(MonitorString::isPathHidden(dir / "linked/.hidden"));  // a dot-name
  EXPECT_FALSE(MonitorString::pathInvisibility("/", true));
  EXPECT_FALSE(MonitorString::pathInvisibility("", true));
}

TEST(MonitorStringTest, CStringsMustBeUtf8) {
  EXPECT_EQ(MonitorString::cstringToString("Grüße"), "Grüße");
  EXPECT_FALSE(MonitorString::cstringToString(nullptr));
  EXPECT_FALSE(MonitorString::cstringToString("\xC3"));              // truncated sequence
  EXPECT_FALSE(MonitorString::cstringToString("\xC0\xAF"));          // overlong "/"
  EXPECT_FALSE(MonitorString::cstringToString("\xED\xA0\x80"));      // surrogate
  EXPECT_FALSE(MonitorString::cstringToString("\xF4\x90\x80\x80"));  // above U+10FFFF
  EXPECT_EQ(MonitorString::cstringToString(""), "");
  EXPECT_TRUE(MonitorString::isNilOrEmpty(static_cast<const char*>(nullptr)));
  EXPECT_TRUE(MonitorString::isNilOrEmpty(std::optional<std::string>("")));
  EXPECT_FALSE(MonitorString::isNilOrEmpty("x"));
}

TEST(MonitorStringTest, SearchOptions) {
  using S = MonitorString;
  EXPECT_TRUE(S::contains("Vexa-Sweeper", "Sweep"));
  EXPECT_FALSE(S::contains("Vexa-Sweeper", "sweep"));
  EXPECT_TRUE(S::contains("Vexa-Sweeper", "sweep", S::CaseInsensitive));
  EXPECT_FALSE(S::contains("abc", ""));
  EXPECT_FALSE(S::contains("ab", "abc"));
  EXPECT_TRUE(S::contains("file.dmg", "DMG", S::CaseInsensitive | S::Anchored | S::Backwards));
  EXPECT_FALSE(S::contains("file.dmg", "file", S::Anchored | S::Backwards));
  EXPECT_TRUE(S::startWith("/Applications/X.app", "/applications", S::CaseInsensitive));
  EXPECT_FALSE(S::startWith("/Applications/X.app", "X.app"));
  EXPECT_TRUE(S::isGreaterThan("b", "a"));
  EXPECT_TRUE(S::isLessThanOrEqual("a", "a"));
  // Digit runs compare by value, as versions do.
  EXPECT_TRUE(S::isGreaterThan("10.10", "10.9"));
  EXPECT_TRUE(S::isLessThan("6.1", "10.13"));
  EXPECT_TRUE(S::isGreaterThanOrEqual("1.02", "1.2"));
  EXPECT_TRUE(S::isLessThanOrEqual("1.2", "1.02"));
  EXPECT_TRUE(S::isGreaterThan("10.9.1", "10.9"));
  EXPECT_TRUE(S::isLessThan("", "0"));
  EXPECT_TRUE(S::isGreaterThan("99999999999999999999999", "99999999999999999999998"));
}

}  // namespace monitor_string_test
}  // namespace vexa
