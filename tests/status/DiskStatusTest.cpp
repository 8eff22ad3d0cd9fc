#include "vexa/status/DiskStatus.h"

#include <gtest/gtest.h>

#include <ostream>

#include "status/DiskVolumes.h"
#include "status/MachineFiles.h"
#include "support/TempDir.h"
#include "util/MountTable.h"

namespace vexa {
namespace disk_status_test {

struct TableCase {
  const char* name;
  const char* mountinfo;
  std::vector<std::string> listed;  // mount points
};
void PrintTo(const TableCase& c, std::ostream* os) { *os << c.name; }

class DiskVolumesListTest : public ::testing::TestWithParam<TableCase> {};

TEST_P(DiskVolumesListTest, ListsLocalVolumesOncePerFileSystem) {
  std::vector<std::string> got;
  for (const auto& entry : DiskVolumes::listed(MountTable::parse(GetParam().mountinfo))) {
    got.push_back(entry.mountPoint);
  }
  EXPECT_EQ(got, GetParam().listed);
}

INSTANTIATE_TEST_SUITE_P(
    Machines, DiskVolumesListTest,
    ::testing::Values(TableCase{"LaptopWithUsbStick",
                                "28 1 259:2 / / rw - ext4 /dev/nvme0n1p2 rw\n"
                                "33 28 259:3 / /boot rw - ext4 /dev/nvme0n1p3 rw\n"
                                "34 33 259:1 / /boot/efi rw - vfat /dev/nvme0n1p1 rw\n"
                                "35 28 259:4 / /efi rw - vfat /dev/nvme0n1p4 rw\n"
                                "36 28 259:5 / /bootstrap rw - ext4 /dev/nvme0n1p5 rw\n"
                                "95 26 8:17 / /media/anna/My\\040Stick rw - vfat /dev/sdb1 rw\n",
                                {"/", "/bootstrap", "/media/anna/My Stick"}},
                      TableCase{"LuksRootAndHome",
                                "28 1 253:0 / / rw - ext4 /dev/mapper/luks-3f1e rw\n"
                                "29 28 253:1 / /home rw - xfs /dev/mapper/vg-home rw\n",
                                {"/", "/home"}},
                      TableCase{"BtrfsSubvolumesListedOnce",
                                "28 1 0:32 /@ / rw - btrfs /dev/sda2 rw,subvol=/@\n"
                                "29 28 0:32 /@home /home rw - btrfs /dev/sda2 rw,subvol=/@home\n"
                                "30 28 0:32 /@snapshots /.snapshots rw - btrfs /dev/sda2 rw\n",
                                {"/"}},
                      TableCase{"BindRepeatSkipped",
                                "28 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
                                "40 28 8:1 /srv/data /mnt/data rw - ext4 /dev/sda1 rw\n",
                                {"/"}},
                      TableCase{"HiddenFromFileManagers",
                                "28 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
                                "41 28 8:2 / /mnt/recovery rw,x-gvfs-hide - ntfs3 /dev/sda2 rw\n"
                                "42 28 8:3 / /mnt/windows rw - ntfs3 /dev/sda3 rw,x-gvfs-hide\n",
                                {"/"}},
                      TableCase{"NeverListedTypes",
                                "1 0 0:40 / / rw - overlay overlay rw\n"
                                "2 1 0:41 / /tmp rw - tmpfs tmpfs rw\n"
                                "3 1 0:42 / /net rw - nfs server:/export rw\n"
                                "4 1 0:43 / /smb rw - cifs //server/share rw\n"
                                "5 1 0:44 / /sshfs rw - fuse.sshfs me@host: rw\n"
                                "6 1 7:0 / /snap/x rw - squashfs /dev/loop0 ro\n"
                                "7 1 8:9 / /mac rw - apfs /dev/sdc2 rw\n",
                                {}},
                      TableCase{"EveryAcceptedType",
                                "1 0 8:1 / /a rw - exfat /dev/sdb1 rw\n"
                                "2 0 8:2 / /b rw - fuseblk /dev/sdb2 rw\n"
                                "3 0 8:3 / /c rw - hfsplus /dev/sdb3 rw\n"
                                "4 0 11:0 / /d rw - iso9660 /dev/sr0 ro\n"
                                "5 0 11:1 / /e rw - udf /dev/sr1 ro\n"
                                "6 0 8:4 / /f rw - f2fs /dev/sdb4 rw\n",
                                {"/a", "/b", "/c", "/d", "/e", "/f"}},
                      TableCase{
                          "TestVmWithoutDisks", "21 26 0:20 / /proc rw - proc proc rw\n", {}}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(DiskVolumesListTest, TenThousandMountsAndEscapedBackslashes) {
  std::string table = "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n";
  for (int i = 0; i < 10000; ++i) {
    table += std::to_string(i + 2) + " 1 8:1 /srv /mnt/bind" + std::to_string(i) +
             " rw - ext4 /dev/sda1 rw\n";
  }
  table += "20000 1 8:2 / /media/a\\134b rw - exfat /dev/sdb1 rw\n";
  const auto listed = DiskVolumes::listed(MountTable::parse(table));
  ASSERT_EQ(listed.size(), 2u);
  EXPECT_EQ(listed[1].mountPoint, "/media/a\\b");
  EXPECT_EQ(DiskVolumes::displayName(listed[1].mountPoint, std::nullopt), "a\\b");
}

struct NameCase {
  const char* mountPoint;
  std::optional<std::string> label;
  const char* name;
};

class DiskVolumesNameTest : public ::testing::TestWithParam<NameCase> {};

TEST_P(DiskVolumesNameTest, LabelElseLastComponent) {
  EXPECT_EQ(DiskVolumes::displayName(GetParam().mountPoint, GetParam().label), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    Names, DiskVolumesNameTest,
    ::testing::Values(NameCase{"/", std::nullopt, "Filesystem root"},
                      NameCase{"/", std::string(""), "Filesystem root"},
                      NameCase{"/", std::string("Fedora"), "Fedora"},
                      NameCase{"/media/anna/My Stick", std::nullopt, "My Stick"},
                      NameCase{"/media/anna/sdb1/", std::nullopt, "sdb1"},
                      NameCase{"/media/anna/sdb1", std::string("BACKUP 2"), "BACKUP 2"}));

TEST(DiskVolumesLabelTest, ReadsOnlyTheLabelLine) {
  EXPECT_EQ(DiskVolumes::udevLabel("E:ID_FS_LABEL_ENC=A\\x20B\nE:ID_FS_LABEL=A B\n"), "A B");
  EXPECT_EQ(DiskVolumes::udevLabel("E:ID_FS_LABEL=\nE:ID_FS_TYPE=ext4"), std::nullopt);
  EXPECT_EQ(DiskVolumes::udevLabel(""), std::nullopt);
}

struct SizesCase {
  const char* name;
  bool indexed;
  nlohmann::json sizes;
  uint64_t used;
  nlohmann::json expected;  // the keys added besides "disk_usedsize"
};
void PrintTo(const SizesCase& c, std::ostream* os) { *os << c.name; }

class DiskVolumesAccumulatedTest : public ::testing::TestWithParam<SizesCase> {};

TEST_P(DiskVolumesAccumulatedTest, AddsTheCategoriesTheArrayHolds) {
  nlohmann::json volume = {{"disk_usedsize", GetParam().used}};
  DiskVolumes::addAccumulatedSizes(volume, GetParam().indexed, GetParam().sizes);
  volume.erase("disk_usedsize");
  EXPECT_EQ(volume, GetParam().expected);
}

nlohmann::json elements(size_t count) {
  nlohmann::json array = nlohmann::json::array();
  for (size_t i = 0; i < count; ++i) array.push_back(uint64_t{100} * (i + 1));
  return array;
}

INSTANTIATE_TEST_SUITE_P(
    Arrays, DiskVolumesAccumulatedTest,
    ::testing::Values(
        SizesCase{"NotIndexed", false, nullptr, 5000, R"({"has_accumulated_sizes": false})"_json},
        SizesCase{"NotAnArray", true, "sizes", 5000, nlohmann::json::object()},
        SizesCase{"ShortArrayAllOther", true, elements(6), 5000,
                  R"({"disk_other": 5000, "has_accumulated_sizes": true})"_json},
        SizesCase{"NineElementsMoviesAndApps", true, elements(9), 5000,
                  R"({"disk_movies": 700, "disk_apps": 800, "disk_other": 3500,
                      "has_accumulated_sizes": true})"_json},
        SizesCase{"ThirteenElements", true, elements(13), 5000,
                  R"({"disk_movies": 700, "disk_apps": 800, "disk_audio": 1000,
                      "disk_photos": 1300, "disk_other": 1200, "has_accumulated_sizes": true})"_json},
        SizesCase{
            "UsedNotAboveSum", true, elements(8), 1500,
            R"({"disk_movies": 700, "disk_apps": 800, "has_accumulated_sizes": false})"_json}),
    [](const auto& param) { return std::string(param.param.name); });

struct FormatCase {
  uint64_t bytes;
  const char* text;
};

class DiskFormatterTest : public ::testing::TestWithParam<FormatCase> {};

TEST_P(DiskFormatterTest, DecimalUnitsWithTheSmallSizeQuirk) {
  EXPECT_EQ(DiskStatus::memoryFormatter(GetParam().bytes), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, DiskFormatterTest,
    ::testing::Values(FormatCase{0, "0.00 Bytes"}, FormatCase{500000, "0.50 Bytes"},
                      FormatCase{999999, "1.00 Bytes"}, FormatCase{1000000, "1.00 MB"},
                      FormatCase{999999999, "1000.00 MB"}, FormatCase{1000000000, "1.00 GB"},
                      FormatCase{18446744073709551615ULL, "18446744073.71 GB"}));

TEST(DiskVolumesSizesTest, UsedIsTotalLessAvailable) {
  nlohmann::json volume;
  DiskVolumes::addSizes(volume, VolumeSpace{4096, 1000, 250, 300, 64});
  EXPECT_EQ(volume["disk_totalsize"], 4096000u);
  EXPECT_EQ(volume["disk_freesize"], 1024000u);
  EXPECT_EQ(volume["disk_usedsize"], 3072000u);
  // A file system reporting more available than it holds reads as empty, not as 2^64.
  DiskVolumes::addSizes(volume, VolumeSpace{512, 10, 20, 20, 0});
  EXPECT_EQ(volume["disk_usedsize"], 0u);
}

class RecordingDisks : public DiskDelegate {
 public:
  void diskDetails(const nlohmann::json& disks) override { samples.push_back(disks); }
  std::vector<nlohmann::json> samples;
};

TEST(DiskStatusFixtureTest, SamplesTheVolumesOfFixtureMachines) {
  auto status = DiskStatus::create(std::string(VEXA_TEST_DATA_DIR) + "/machines/intel-laptop");
  ASSERT_TRUE(status);
  auto recorder = std::make_shared<RecordingDisks>();
  status->setDelegate(recorder);
  status->updateInfo();
  ASSERT_EQ(recorder->samples.size(), 1u);
  const auto& disks = recorder->samples[0];
  ASSERT_EQ(disks.size(), 2u) << disks.dump();
  EXPECT_EQ(disks[0]["disk_path"], "/");
  EXPECT_EQ(disks[0]["disk_name"], "Filesystem root");
  EXPECT_EQ(disks[0]["disk_format"], "ext4");
  EXPECT_EQ(disks[0]["disk_mntfromname"], "/dev/nvme0n1p2");
  EXPECT_EQ(disks[0]["disk_backups"], 0);
  EXPECT_EQ(disks[0]["has_accumulated_sizes"], false);
  EXPECT_EQ(disks[1]["disk_path"], "/media/anna/KINGSTON");
  EXPECT_EQ(disks[1]["disk_name"], "KINGSTON");
  EXPECT_FALSE(disks[1].contains("disk_backups"));
  for (const auto& disk : disks) {
    EXPECT_GT(disk["disk_totalsize"].get<uint64_t>(), 0u);
    EXPECT_EQ(disk["disk_totalsize"].get<uint64_t>(),
              disk["disk_usedsize"].get<uint64_t>() + disk["disk_freesize"].get<uint64_t>());
  }
  // A machine without a mount table reports an empty array.
  auto board = DiskStatus::create(std::string(VEXA_TEST_DATA_DIR) + "/machines/arm-board");
  board->setDelegate(recorder);
  board->updateInfo();
  ASSERT_EQ(recorder->samples.size(), 2u);
  EXPECT_EQ(recorder->samples[1], nlohmann::json::array());
}

TEST(DiskStatusFixtureTest, DriveIconsComeFromTheDesktopTheme) {
  test::TempDir icons;
  const std::string disk =
      icons.write("share/icons/Adwaita/512x512/devices/drive-harddisk.png", "png");
  const std::string stick =
      icons.write("share/icons/hicolor/scalable/devices/drive-removable-media.svg", "svg");
  icons.write("share/icons/hicolor/48x48/apps/drive-harddisk.png", "an application's icon");
  test::ScopedEnv dataDirs("XDG_DATA_DIRS", icons / "share");
  test::ScopedEnv dataHome("XDG_DATA_HOME", icons / "none");
  test::ScopedEnv home("HOME", icons / "none");
  const auto disks =
      DiskStatus::create(std::string(VEXA_TEST_DATA_DIR) + "/machines/intel-laptop")->sample();
  ASSERT_EQ(disks.size(), 2u);
  EXPECT_EQ(disks[0].value("disk_icom", ""), disk);
  EXPECT_EQ(disks[1].value("disk_icom", ""), stick);
}

TEST(DiskStatusHomeTest, HomeVolumeFiguresAgree) {
  const uint64_t total = DiskStatus::totalDiskSpaceInBytes();
  ASSERT_GT(total, 0u);
  EXPECT_LE(DiskStatus::usedDiskSpaceInBytes(), total);
  EXPECT_LE(DiskStatus::freeDiskSpaceInBytes(), total);
  EXPECT_GT(DiskStatus::numberOfNodes(), 0u);
  EXPECT_EQ(DiskStatus::totalDiskSpace(), DiskStatus::memoryFormatter(total));
  // No volume of this machine is named BOOTCAMP.
  EXPECT_EQ(DiskStatus::totalBootCampSpace(), std::nullopt);
  EXPECT_EQ(DiskStatus::usedBootCampDiskSpaceInBytes(), 0u);
}

}  // namespace disk_status_test
}  // namespace vexa
