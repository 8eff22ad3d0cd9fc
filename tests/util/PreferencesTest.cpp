#include "vexa/util/Preferences.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "support/TempDir.h"
#include "vexa/util/AppIdentity.h"

namespace vexa {
namespace preferences_test {

using test::ScopedEnv;
using test::TempDir;

TEST(PreferencesTest, ValuesSurviveANewStoreOnTheSameFile) {
  TempDir dir;
  const std::string file = dir / "nested/app/preferences.json";
  {
    Preferences prefs(file);
    EXPECT_EQ(prefs.integerForKey("SyncEventID"), 0);
    EXPECT_TRUE(prefs.setInteger("SyncEventID", 9007199254740993LL));  // beyond a double
    EXPECT_TRUE(prefs.setStringArray("Paths", {"/a", "/b c", "ü"}));
  }
  Preferences again(file);
  EXPECT_EQ(again.integerForKey("SyncEventID"), 9007199254740993LL);
  EXPECT_EQ(again.stringArrayForKey("Paths"), (std::vector<std::string>{"/a", "/b c", "ü"}));
  EXPECT_TRUE(again.removeObjectForKey("Paths"));
  EXPECT_FALSE(again.stringArrayForKey("Paths"));
  // Only the file itself is left behind: no temporary files.
  size_t entries = 0;
  for ([[maybe_unused]] auto& e : std::filesystem::directory_iterator(dir / "nested/app"))
    ++entries;
  EXPECT_EQ(entries, 1u);
  EXPECT_EQ(std::filesystem::status(file).permissions() & std::filesystem::perms::all,
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(PreferencesTest, CorruptOrForeignFilesReadAsEmptyAndAreReplaced) {
  TempDir dir;
  for (const char* contents : {"{ not json", "[1,2,3]", "\"text\"", "", "\xff\xfe\x00"}) {
    const std::string file = dir.write("prefs.json", std::string(contents));
    Preferences prefs(file);
    EXPECT_EQ(prefs.integerForKey("SyncEventID"), 0) << contents;
    EXPECT_TRUE(prefs.setInteger("SyncEventID", 5));
    EXPECT_EQ(Preferences(file).integerForKey("SyncEventID"), 5);
  }
  // Wrong value types read as absent.
  const std::string file = dir.write("typed.json", R"({"n": "12", "list": ["a", 3]})");
  Preferences prefs(file);
  EXPECT_EQ(prefs.integerForKey("n"), 0);
  EXPECT_FALSE(prefs.stringArrayForKey("list"));
  // A folder where the file should be: reads empty, writing fails, nothing crashes.
  dir.mkdir("folder.json");
  Preferences blocked(dir / "folder.json");
  EXPECT_EQ(blocked.integerForKey("x"), 0);
  EXPECT_FALSE(blocked.setInteger("x", 1));
}

TEST(PreferencesTest, SeesAnotherWritersChanges) {
  TempDir dir;
  const std::string file = dir / "prefs.json";
  Preferences mine(file), theirs(file);
  EXPECT_TRUE(mine.setInteger("a", 1));
  EXPECT_EQ(theirs.integerForKey("a"), 1);
  EXPECT_TRUE(theirs.setInteger("b", 2));
  EXPECT_EQ(mine.integerForKey("b"), 2);
  EXPECT_EQ(mine.integerForKey("a"), 1);
}

TEST(PreferencesTest, ConcurrentWritersLoseNothing) {
  TempDir dir;
  Preferences prefs(dir / "prefs.json");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 25; ++i) prefs.setInteger("k" + std::to_string(t * 100 + i), i);
    });
  }
  for (auto& th : threads) th.join();
  Preferences fresh(dir / "prefs.json");
  for (int t = 0; t < 4; ++t) {
    for (int i = 0; i < 25; ++i)
      EXPECT_EQ(fresh.integerForKey("k" + std::to_string(t * 100 + i)), i);
  }
}

TEST(PreferencesTest, StandardStoreLivesUnderTheConfigHome) {
  TempDir dir;
  ScopedEnv config("XDG_CONFIG_HOME", dir.path());
  AppIdentity::setName("com.tarnwick.Vexa-Sweeper");
  EXPECT_EQ(Preferences::standard().filePath(), dir / "com.tarnwick.Vexa-Sweeper/preferences.json");
  EXPECT_TRUE(Preferences::standard().setInteger("SyncEventID", 77));
  EXPECT_TRUE(std::filesystem::exists(dir / "com.tarnwick.Vexa-Sweeper/preferences.json"));
}

TEST(PreferencesTest, LanguagesComeFromTheEnvironmentUnlessStored) {
  TempDir dir;
  ScopedEnv all("LC_ALL", std::nullopt);
  ScopedEnv messages("LC_MESSAGES", std::nullopt);
  ScopedEnv language("LANGUAGE", "fr_CA:fr:en");
  {
    ScopedEnv lang("LANG", "de_DE.UTF-8");
    EXPECT_EQ(Preferences::preferredLanguages(), (std::vector<std::string>{"fr-CA", "fr", "en"}));
  }
  {
    ScopedEnv lang("LANG", "C");  // LANGUAGE is ignored with the C locale
    EXPECT_EQ(Preferences::preferredLanguages(), std::vector<std::string>{"en"});
  }
  ScopedEnv noLanguage("LANGUAGE", std::nullopt);
  ScopedEnv lang("LANG", "zh_CN.UTF-8");
  EXPECT_EQ(Preferences::preferredLanguages(), std::vector<std::string>{"zh-CN"});
  Preferences prefs(dir / "p.json");
  EXPECT_EQ(prefs.stringArrayForKey("AppleLanguages"), std::vector<std::string>{"zh-CN"});
  prefs.setStringArray("AppleLanguages", {"ja"});
  EXPECT_EQ(prefs.stringArrayForKey("AppleLanguages"), std::vector<std::string>{"ja"});
}

}  // namespace preferences_test
}  // namespace vexa
