#include "util/PropertyList.h"

#include <gtest/gtest.h>

namespace vexa {
namespace {

using nlohmann::json;

constexpr const char* kInfoPlist = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>CFBundleIdentifier</key><string>com.example.Editor</string>
  <key>CFBundleName</key><string>Editor &amp; Co</string>
  <key>LSRequiresNativeExecution</key><true/>
  <key>Count</key><integer>-3</integer>
  <key>Big</key><integer>9000000000</integer>
  <key>Ratio</key><real>0.5</real>
  <key>Built</key><date>2001-01-01T00:01:00Z</date>
  <key>Blob</key><data>AAEC</data>
  <key>Types</key><array><string>a</string><dict/></array>
</dict>
</plist>)";

TEST(PropertyListTest, ReadsEveryXmlTypeAndSurvivesABinaryRoundTrip) {
  auto info = PropertyList::parse(std::string(kInfoPlist));
  ASSERT_TRUE(info);
  EXPECT_EQ((*info)["CFBundleIdentifier"], "com.example.Editor");
  EXPECT_EQ((*info)["CFBundleName"], "Editor & Co");
  EXPECT_EQ((*info)["LSRequiresNativeExecution"], true);
  EXPECT_EQ((*info)["Count"], -3);
  EXPECT_EQ((*info)["Big"], 9000000000LL);
  EXPECT_EQ((*info)["Ratio"], 0.5);
  EXPECT_DOUBLE_EQ((*info)["Built"].get<double>(), 978307260.0);
  EXPECT_EQ((*info)["Blob"], json::binary({0, 1, 2}));
  EXPECT_EQ((*info)["Types"], json::parse(R"(["a", {}])"));

  auto binary = PropertyList::toBinary(*info);
  ASSERT_TRUE(binary);
  EXPECT_EQ(binary->rfind("bplist00", 0), 0u);
  auto again = PropertyList::parse(*binary);
  ASSERT_TRUE(again);
  EXPECT_EQ((*again)["CFBundleName"], "Editor & Co");
  EXPECT_EQ((*again)["Count"], -3);
  EXPECT_EQ((*again)["Blob"], json::binary({0, 1, 2}));
  EXPECT_EQ((*again)["Types"], (*info)["Types"]);
}

TEST(PropertyListTest, UnreadableInputIsEmptyAndNullsAreLeftOut) {
  EXPECT_FALSE(PropertyList::parse(std::string()));
  EXPECT_FALSE(PropertyList::parse(std::string("not a plist at all")));
  EXPECT_FALSE(PropertyList::parse(std::string("bplist00\xff\xff\xff", 11)));
  EXPECT_FALSE(PropertyList::parse(std::string("<plist><dict><key>a</key>")));
  EXPECT_FALSE(PropertyList::toBinary(json()));

  auto binary = PropertyList::toBinary(json{{"kept", 1}, {"gone", nullptr}});
  ASSERT_TRUE(binary);
  EXPECT_EQ(PropertyList::parse(*binary), json({{"kept", 1}}));
}

TEST(PropertyListTest, DeepNestingIsRefusedNotOverflowed) {
  json deep = json::array();
  for (int i = 0; i < 2000; ++i) deep = json::array({deep});
  EXPECT_FALSE(PropertyList::toBinary(deep));

  std::string xml = "<plist>";
  for (int i = 0; i < 2000; ++i) xml += "<array>";
  for (int i = 0; i < 2000; ++i) xml += "</array>";
  xml += "</plist>";
  EXPECT_FALSE(PropertyList::parse(xml));
}

}  // namespace
}  // namespace vexa
