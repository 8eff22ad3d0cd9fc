#include "util/PropertyList.h"

#include <gtest/gtest.h>

namespace vexa {
namespace property_list_test {

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
  // Built from the outside in: wrapping a copy each time would copy the whole tree 2,000 times.
  json deep = json::array();
  json* innermost = &deep;
  for (int i = 0; i < 2000; ++i) {
    innermost->push_back(json::array());
    innermost = &innermost->back();
  }
  EXPECT_FALSE(PropertyList::toBinary(deep));

  std::string xml = "<plist>";
  for (int i = 0; i < 2000; ++i) xml += "<array>";
  for (int i = 0; i < 2000; ++i) xml += "</array>";
  xml += "</plist>";
  EXPECT_FALSE(PropertyList::parse(xml));
}

// A binary list by hand: objects, then the offset table, then the trailer.
std::string binaryList(const std::vector<std::string>& objects, uint64_t top = 0,
                       uint8_t refSize = 1) {
  std::string out = "bplist00";
  std::vector<uint64_t> offsets;
  for (const auto& object : objects) {
    offsets.push_back(out.size());
    out += object;
  }
  const uint64_t table = out.size();
  for (uint64_t offset : offsets) out += static_cast<char>(offset);
  std::string trailer(32, '\0');
  trailer[6] = 1;
  trailer[7] = static_cast<char>(refSize);
  auto put = [&](int at, uint64_t v) {
    for (int i = 7; i >= 0; --i, v >>= 8) trailer[at + i] = static_cast<char>(v & 0xff);
  };
  put(8, objects.size());
  put(16, top);
  put(24, table);
  return out + trailer;
}

TEST(PropertyListTest, HostileBinaryListsGetAnAnswerNotACrash) {
  using namespace std::string_literals;
  // {"a\0b": "\u00e9\0y"} with UTF-16 text: NUL characters become U+FFFD.
  auto odd = PropertyList::parse(binaryList({"\xd1\x01\x02"s,
                                             "\x53"
                                             "a\0b"s,
                                             "\x63\x00\xe9\x00\x00\x00"
                                             "y"s}));
  ASSERT_TRUE(odd);
  EXPECT_EQ(*odd, json({{"a\xef\xbf\xbd"
                         "b",
                         "\xc3\xa9\xef\xbf\xbdy"}}));
  // An array that contains itself, a reference past the table, a length past the end, a
  // trailer that points outside the file.
  EXPECT_FALSE(PropertyList::parse(binaryList({"\xa1\x00"s})));
  EXPECT_FALSE(PropertyList::parse(binaryList({"\xa1\x05"s})));
  EXPECT_FALSE(PropertyList::parse(binaryList({"\x5f\x13\xff\xff\xff\xff\xff\xff\xff\xff"s})));
  EXPECT_FALSE(PropertyList::parse(binaryList({"\x09"s}, 7)));
  EXPECT_EQ(PropertyList::parse(binaryList({"\x09"s})), json(true));
  // One object referred to twice is fine.
  EXPECT_EQ(PropertyList::parse(binaryList({"\xa3\x01\x01\x01"s, "\x08"s})),
            json::parse("[false, false, false]"));
  // Shared objects that would expand to 2^40 values.
  std::vector<std::string> doubling;
  for (int i = 0; i < 40; ++i) {
    doubling.push_back("\xa2"s + static_cast<char>(i + 1) + static_cast<char>(i + 1));
  }
  doubling.push_back("\x09");
  EXPECT_FALSE(PropertyList::parse(binaryList(doubling)));
}

}  // namespace property_list_test
}  // namespace vexa
