#include "vexa/monitors/AppFile.h"

#include <gtest/gtest.h>

#include <cstring>

#include "monitors/ExecutableArchitectures.h"
#include "vexa/monitors/MonitorApplication.h"

namespace vexa {
namespace app_file_test {

TEST(AppFileTest, DescriptionListsEveryFieldInOrder) {
  AppFile app;
  EXPECT_EQ(app.description(),
            "[AppName:(null),AppDisplayName:(null),AppVersion:(null),AppPath:,"
            "AppBundleIdentifer:(null),MinSupportOSXVersion:(null),PlatformSupport:1,"
            "AppDomain:(null),AppIconCachePath:(null),ExecutablePath:(null),AppSize:0,"
            "LastUseDate:0,UsedCount:0,createDate:0,ExecutableArchs:(null),IsUniBinary:0,"
            "NeedForceRemove:0]");
  app.appName = "Editor";
  app.appSize = 18446744073709551615ull;
  app.executableArchs = std::vector<int64_t>{7, 16777223};
  app.isUniBinary = true;
  const std::string d = app.description();
  EXPECT_NE(d.find("AppName:Editor,"), std::string::npos);
  EXPECT_NE(d.find("AppSize:18446744073709551615,"), std::string::npos);
  EXPECT_NE(d.find("ExecutableArchs:(\n    7,\n    16777223\n),IsUniBinary:1,"), std::string::npos);
}

TEST(AppFileTest, JsonRoundTripKeepsEveryField) {
  AppFile app;
  app.appName = "Editor";
  app.appPath = "/home/u/Applications/Editor.app";
  app.appBundleIdentifer = "com.example.Editor";
  app.platformSupport = false;
  app.appSize = 1ull << 40;
  app.lastUseDate = 4000000000u;
  app.executableArchs = std::vector<int64_t>{16777228};
  app.needForceRemove = true;
  const std::string text = app.toJSON();
  EXPECT_EQ(text.find("appDisplayName"), std::string::npos);  // absent fields are left out
  auto back = AppFile::fromJSON(text);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->description(), app.description());
  EXPECT_EQ(back->toJSON(), text);
  // A bare value fills the first property.
  auto bare = AppFile::fromJSON(R"(["x"])");
  ASSERT_TRUE(bare);
  EXPECT_FALSE(bare->appName);  // not a string: left alone
}

TEST(AppFileTest, DomainsKeepTheirAsymmetry) {
  EXPECT_EQ(AppFile::domainOf("com.example.Editor"), "com.example");
  EXPECT_EQ(AppFile::domainOf("com.example.Editor.agent"), "com.example");
  EXPECT_EQ(AppFile::domainOf("net.example.tool"), "net.example.tool.");
  EXPECT_EQ(AppFile::domainOf("org.com.x.y"), "org.com.x");
  EXPECT_EQ(AppFile::domainOf("com"), "com.");
}

TEST(AppFileTest, UrlsBecomePathsAndKeepTheirTrailingSlash) {
  for (const auto& [url, path] :
       {std::pair{"file://localhost/Applications/My%20App.app/", "/Applications/My App.app/"},
        {"file:///opt/A%20B%20C.app", "/opt/A B C.app"},
        {"/plain/path", "/plain/path"},
        {"", ""}}) {
    EXPECT_EQ(AppFile::formatAppPath(url), path);
    std::string inPlace = url;  // the monitor's form changes its argument
    MonitorApplication::formatAppPath(inPlace);
    EXPECT_EQ(inPlace, path);
  }
}

std::vector<uint8_t> bytes(std::initializer_list<int> v) {
  std::vector<uint8_t> out;
  for (int b : v) out.push_back(static_cast<uint8_t>(b));
  return out;
}

TEST(ExecutableArchitecturesTest, MachOThinFatAndElf) {
  // Thin 64-bit Mach-O, little-endian on disk (x86-64).
  EXPECT_EQ(ExecutableArchitectures::parse(bytes({0xcf, 0xfa, 0xed, 0xfe, 7, 0, 0, 1})),
            (std::vector<int64_t>{0x01000007}));
  // Universal: i386 and x86-64 entries of 20 bytes each, big-endian.
  std::vector<uint8_t> fat = bytes({0xca, 0xfe, 0xba, 0xbe, 0, 0, 0, 2});
  for (int type : {7, 0x01000007}) {
    std::vector<uint8_t> entry(20, 0);
    entry[0] = static_cast<uint8_t>(type >> 24);
    entry[3] = static_cast<uint8_t>(type & 0xff);
    fat.insert(fat.end(), entry.begin(), entry.end());
  }
  EXPECT_EQ(ExecutableArchitectures::parse(fat), (std::vector<int64_t>{7, 0x01000007}));
  // A Java class file shares the magic; its "count" is a version number.
  EXPECT_TRUE(ExecutableArchitectures::parse(bytes({0xca, 0xfe, 0xba, 0xbe, 0, 0, 0, 52})).empty());
  // A universal header cut short gives the entries that are there.
  EXPECT_EQ(ExecutableArchitectures::parse(std::span(fat).first(8 + 20)),
            (std::vector<int64_t>{7}));
  // ELF: this very test program.
  const auto own = ExecutableArchitectures::ofFile("/proc/self/exe");
  ASSERT_EQ(own.size(), 1u);
#if defined(__x86_64__)
  EXPECT_EQ(own[0], 0x01000007);
#elif defined(__aarch64__)
  EXPECT_EQ(own[0], 0x0100000C);
#endif
  EXPECT_TRUE(
      ExecutableArchitectures::parse(bytes({'#', '!', '/', 'b', 'i', 'n', '/', 's'})).empty());
  EXPECT_TRUE(ExecutableArchitectures::parse({}).empty());
  EXPECT_TRUE(ExecutableArchitectures::ofFile("/nonexistent").empty());
}

}  // namespace app_file_test
}  // namespace vexa
