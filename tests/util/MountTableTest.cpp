#include "util/MountTable.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/TempDir.h"

namespace vexa {
namespace mount_table_test {

struct ParseCase {
  const char* name;
  const char* text;
  // "mountPoint|fsType|source|root" of each entry parsed.
  std::vector<std::string> entries;
};

std::string describe(const MountEntry& entry) {
  return entry.mountPoint + "|" + entry.fsType + "|" + entry.source + "|" + entry.root;
}

class MountTableParseTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(MountTableParseTest, ParsesEachWellFormedLine) {
  std::vector<std::string> got;
  for (const auto& entry : MountTable::parse(GetParam().text)) got.push_back(describe(entry));
  EXPECT_EQ(got, GetParam().entries);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, MountTableParseTest,
    ::testing::Values(
        ParseCase{"Plain",
                  "36 35 98:0 /mnt1 /mnt/parent rw,noatime master:1 - ext3 /dev/root "
                  "rw,errors=continue\n",
                  {"/mnt/parent|ext3|/dev/root|/mnt1"}},
        ParseCase{"NoOptionalFields",
                  "22 1 0:21 / /proc rw,nosuid - proc proc rw\n",
                  {"/proc|proc|proc|/"}},
        ParseCase{"SeveralOptionalFields",
                  "40 22 0:35 / /media/usb rw shared:7 master:2 propagate_from:1 - vfat "
                  "/dev/sdb1 rw\n",
                  {"/media/usb|vfat|/dev/sdb1|/"}},
        ParseCase{"EscapedSpaceTabNewlineBackslash",
                  "41 22 8:17 / /media/My\\040Disk\\011x\\012y\\134z rw - ext4 /dev/sd\\040b rw\n",
                  {"/media/My Disk\tx\ny\\z|ext4|/dev/sd b|/"}},
        ParseCase{"NoFinalNewline",
                  "50 22 0:50 / /run/user/0 rw - tmpfs tmpfs rw",
                  {"/run/user/0|tmpfs|tmpfs|/"}},
        ParseCase{"BindWithAFolderRoot",
                  "60 22 8:1 /srv/data /mnt/data rw - ext4 /dev/sda1 rw\n",
                  {"/mnt/data|ext4|/dev/sda1|/srv/data"}},
        ParseCase{"MissingSeparatorSkipped",
                  "61 22 8:1 / /mnt/a rw shared:1 ext4 /dev/sda1 rw\n"
                  "62 22 8:1 / /mnt/b rw - ext4 /dev/sda1 rw\n",
                  {"/mnt/b|ext4|/dev/sda1|/"}},
        ParseCase{"TooFewFieldsSkipped", "63 22 8:1 / /mnt/c rw -\n64 22\n\n   \n", {}},
        ParseCase{"SeparatorWithoutSource", "65 22 8:1 / /mnt/d rw - ext4\n", {}},
        ParseCase{"RunsOfSpaces",
                  "66  22 8:1 /  /mnt/e  rw  -  xfs  /dev/sdc  rw\n",
                  {"/mnt/e|xfs|/dev/sdc|/"}},
        ParseCase{"OddBytesKept",
                  "67 22 8:1 / /mnt/\xff\xfe rw - ext4 /dev/\x01 rw\n",
                  {"/mnt/\xff\xfe|ext4|/dev/\x01|/"}},
        ParseCase{"Empty", "", {}}),
    [](const auto& param) { return std::string(param.param.name); });

struct UnescapeCase {
  const char* name;
  const char* field;
  std::string expected;
};

class MountTableUnescapeTest : public ::testing::TestWithParam<UnescapeCase> {};

TEST_P(MountTableUnescapeTest, DecodesOnlyThreeOctalDigits) {
  EXPECT_EQ(MountTable::unescape(GetParam().field), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Fields, MountTableUnescapeTest,
                         ::testing::Values(UnescapeCase{"Space", "a\\040b", "a b"},
                                           UnescapeCase{"AtTheEnd", "a\\040", "a "},
                                           UnescapeCase{"TooShortAtTheEnd", "a\\04", "a\\04"},
                                           UnescapeCase{"TrailingBackslash", "a\\", "a\\"},
                                           UnescapeCase{"NotOctal", "a\\089", "a\\089"},
                                           UnescapeCase{"OverAByte", "a\\777", "a\\777"},
                                           UnescapeCase{"Nul", "a\\000b", std::string("a\0b", 3)},
                                           UnescapeCase{"TwoInARow", "\\134\\040", "\\ "}),
                         [](const auto& param) { return std::string(param.param.name); });

TEST(MountTableReadTest, ReadsAFileAndAnswersNothingForWhatCannotBeRead) {
  test::TempDir dir;
  const std::string table = dir.write("mountinfo", "70 22 8:1 / /mnt/x rw - ext4 /dev/sdx rw\n");
  ASSERT_EQ(MountTable::read(table).size(), 1U);
  EXPECT_EQ(MountTable::read(table)[0].mountPoint, "/mnt/x");
  EXPECT_TRUE(MountTable::read(dir / "missing").empty());
  EXPECT_TRUE(MountTable::read(dir.path()).empty());
  // A FIFO with no writer would block an ordinary open and read.
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_TRUE(MountTable::read(fifo).empty());
}

TEST(MountTableReadTest, TheProcessTableHasTheRoot) {
  bool root = false;
  for (const auto& entry : MountTable::read("/proc/self/mountinfo")) {
    root = root || entry.mountPoint == "/";
  }
  EXPECT_TRUE(root);
}

TEST(MountTableFieldsTest, KeepsTheDeviceAndBothOptionLists) {
  const auto entries = MountTable::parse(
      "95 26 8:17 / /media/stick rw,nosuid shared:650 - vfat /dev/sdb1 rw,uid=1000\n"
      "96 26 0:40 / /mnt/x ro - tmpfs tmpfs\n");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].device, "8:17");
  EXPECT_EQ(entries[0].options, "rw,nosuid,rw,uid=1000");
  // Without the file system's options the mount's own stand alone.
  EXPECT_EQ(entries[1].options, "ro");
}

}  // namespace mount_table_test
}  // namespace vexa
