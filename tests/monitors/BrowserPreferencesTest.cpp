#include "monitors/BrowserPreferences.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace vexa {

void PrintTo(const BrowserPreferences::FirefoxProfile& p, std::ostream* os) {
  *os << p.path << (p.isRelative ? " (relative)" : "");
}

namespace browser_preferences_test {

using Profile = BrowserPreferences::FirefoxProfile;

struct JsonCase {
  const char* name;
  std::string text;
  std::optional<std::string> expected;
};

class ChromeDownloadDirectoryTest : public ::testing::TestWithParam<JsonCase> {};

TEST_P(ChromeDownloadDirectoryTest, Reads) {
  EXPECT_EQ(BrowserPreferences::chromeDownloadDirectory(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ChromeDownloadDirectoryTest,
    ::testing::Values(
        JsonCase{"Plain", R"({"download":{"default_directory":"/home/u/Dl"}})", "/home/u/Dl"},
        JsonCase{"Escapes", R"({"download":{"default_directory":"/h/\u00e9 \"q\"\/x"}})",
                 "/h/\xC3\xA9 \"q\"/x"},
        JsonCase{"AmongOthers",
                 R"({"a":[{"download":{"default_directory":"/no"}}],)"
                 R"("download":{"prompt":true,"default_directory":"/yes","x":{}}})",
                 "/yes"},
        JsonCase{"NestedDeeperDoesNotCount", R"({"x":{"download":{"default_directory":"/no"}}})",
                 std::nullopt},
        JsonCase{"TopLevelKeyDoesNotCount", R"({"default_directory":"/no","download":{}})",
                 std::nullopt},
        JsonCase{"LastDuplicateWins",
                 R"({"download":{"default_directory":"/a","default_directory":"/b"}})", "/b"},
        JsonCase{"NotAString", R"({"download":{"default_directory":7}})", std::nullopt},
        JsonCase{"Missing", R"({"download":{}})", std::nullopt},
        JsonCase{"NotJson", R"({"download":{"default_directory":"/a")", std::nullopt},
        JsonCase{"TrailingBytes", R"({"download":{"default_directory":"/a"}} x)", std::nullopt},
        JsonCase{"InvalidUtf8", "{\"download\":{\"default_directory\":\"/a\xff\"}}", std::nullopt},
        JsonCase{"Empty", "", std::nullopt},
        JsonCase{"DeepNesting", std::string(100000, '[') + std::string(100000, ']'), std::nullopt}),
    [](const auto& c) { return std::string(c.param.name); });

TEST(ChromeLastUsedProfileTest, ReadsProfileLastUsed) {
  EXPECT_EQ(BrowserPreferences::chromeLastUsedProfile(
                "{\r\n \"profile\": {\"info_cache\": {}, \"last_used\": \"Profile 1\"}\r\n}"),
            "Profile 1");
  EXPECT_EQ(BrowserPreferences::chromeLastUsedProfile(R"({"profile":{"last_used":null}})"),
            std::nullopt);
}

struct IniCase {
  const char* name;
  std::string text;
  std::optional<Profile> expected;
};

class FirefoxProfileTest : public ::testing::TestWithParam<IniCase> {};

TEST_P(FirefoxProfileTest, Chooses) {
  EXPECT_EQ(BrowserPreferences::firefoxProfile(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FirefoxProfileTest,
    ::testing::Values(
        IniCase{"InstallSectionFirst",
                "[Profile1]\nName=a\nIsRelative=1\nPath=x.a\nDefault=1\n\n"
                "[Install4F96D1932A9F858E]\nDefault=y.b\nLocked=1\n\n"
                "[Install2]\nDefault=z.c\n[Profile0]\nPath=y.b\nIsRelative=1\n",
                Profile{"y.b", true}},
        IniCase{"DefaultOne",
                "[General]\nStartWithLastProfile=1\n[Profile0]\nPath=p0\n"
                "[Profile1]\nPath=p1\nDefault=1\n",
                Profile{"p1", true}},
        IniCase{"FirstWhenNoneMarked",
                "[Profile0]\nPath=/abs/p0\nIsRelative=0\n[Profile1]\n"
                "Path=p1\n",
                Profile{"/abs/p0", false}},
        IniCase{"Crlf", "[Profile0]\r\nPath=p0 \r\nDefault=1\r\n", Profile{"p0", true}},
        IniCase{"CommentsAndSpaces", "; comment\n# other\n[Profile0]\n  Path = p q \n",
                Profile{"p q", true}},
        IniCase{"FirstDuplicateKeyWins", "[Profile0]\nPath=a\nPath=b\n", Profile{"a", true}},
        IniCase{"AbsoluteInstallDefault", "[InstallX]\nDefault=/opt/p\n", Profile{"/opt/p", false}},
        IniCase{"ProfileWithoutPathSkipped", "[Profile0]\nName=x\n[Profile1]\nPath=p1\n",
                Profile{"p1", true}},
        IniCase{"KeysAreCaseSensitive", "[Profile0]\npath=p\n", std::nullopt},
        IniCase{"UnclosedHeaderIgnored", "[Profile0\nPath=p\n", std::nullopt},
        IniCase{"Nothing", "", std::nullopt},
        IniCase{"KeyBeforeAnySection", "Path=p\n", std::nullopt}),
    [](const auto& c) { return std::string(c.param.name); });

struct PrefsCase {
  const char* name;
  std::string text;
  std::map<std::string, BrowserPreferences::PrefValue> expected;
};

class FirefoxPrefsTest : public ::testing::TestWithParam<PrefsCase> {};

TEST_P(FirefoxPrefsTest, Parses) {
  EXPECT_EQ(BrowserPreferences::firefoxPrefs(GetParam().text), GetParam().expected);
}

using V = BrowserPreferences::PrefValue;
INSTANTIATE_TEST_SUITE_P(
    Table, FirefoxPrefsTest,
    ::testing::Values(
        PrefsCase{"Kinds",
                  "// Mozilla User Preferences\n"
                  "user_pref(\"browser.download.dir\", \"/home/u/Dl\");\n"
                  "user_pref(\"browser.download.folderList\", 2);\n"
                  "user_pref(\"b\", true);\nuser_pref(\"c\", false);\nuser_pref(\"n\", -5);\n",
                  {{"browser.download.dir", V{std::string("/home/u/Dl")}},
                   {"browser.download.folderList", V{int64_t{2}}},
                   {"b", V{true}},
                   {"c", V{false}},
                   {"n", V{int64_t{-5}}}}},
        PrefsCase{"Escapes",
                  R"(user_pref("d", "C:\\x \"q\" \u00e9\ud83d\ude00 \x41 it's");)",
                  {{"d", V{std::string("C:\\x \"q\" \xC3\xA9\xF0\x9F\x98\x80 A it's")}}}},
        PrefsCase{"SingleQuotes", "user_pref('a', 'b');", {{"a", V{std::string("b")}}}},
        PrefsCase{"Comments",
                  "/* user_pref(\"x\", 1); */ # user_pref(\"y\", 1);\n"
                  "user_pref(/* in */ \"z\" // line\n , 3);",
                  {{"z", V{int64_t{3}}}}},
        PrefsCase{"CrlfAndSiblings",
                  "pref(\"a\", 1);\r\nsticky_pref(\"b\", 2);\r\n"
                  "pref(\"c\", 3, locked);\r\n",
                  {{"a", V{int64_t{1}}}, {"b", V{int64_t{2}}}, {"c", V{int64_t{3}}}}},
        PrefsCase{"LaterWins",
                  "user_pref(\"a\", 1);\nuser_pref(\"a\", \"s\");",
                  {{"a", V{std::string("s")}}}},
        PrefsCase{"BadStatementSkipped",
                  "user_pref(\"a\", );\nfoo(\"x\", 1);\nuser_pref(\"b\" 1);\n"
                  "user_pref(\"c\", 1);",
                  {{"c", V{int64_t{1}}}}},
        PrefsCase{"LoneSurrogateRejected",
                  R"(user_pref("a", "\ud800x"); user_pref("b", 1);)",
                  {{"b", V{int64_t{1}}}}},
        PrefsCase{"OverflowRejected",
                  "user_pref(\"a\", 2147483648);user_pref(\"b\", -2147483648);",
                  {{"b", V{int64_t{-2147483648LL}}}}},
        PrefsCase{"UnterminatedString", "user_pref(\"a\", \"b);\n", {}},
        PrefsCase{"MissingSemicolonAtEnd", "user_pref(\"a\", 1)", {}}, PrefsCase{"Empty", "", {}}),
    [](const auto& c) { return std::string(c.param.name); });

}  // namespace browser_preferences_test
}  // namespace vexa
