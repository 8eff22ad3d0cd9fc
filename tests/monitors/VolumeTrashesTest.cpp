#include "monitors/VolumeTrashes.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "support/ScratchMount.h"
#include "support/TempDir.h"

namespace vexa {
namespace volume_trashes_test {

namespace fs = std::filesystem;

const unsigned kUid = static_cast<unsigned>(::geteuid());
const std::string kId = std::to_string(kUid);

void stickyFolder(const std::string& path) {
  fs::create_directories(path);
  ::chmod(path.c_str(), 01777);
}

struct LayoutCase {
  const char* name;
  // Builds a volume's top folder.
  std::function<void(const test::TempDir&, const std::string& top)> build;
  // The Trash "files" folder expected, relative to the top ("" for none).
  std::string expected;
  bool needsRoot = false;
};

class VolumeTrashLayoutTest : public ::testing::TestWithParam<LayoutCase> {};

TEST_P(VolumeTrashLayoutTest, FindsTheTrashTheVolumeHas) {
  if (GetParam().needsRoot && ::geteuid() != 0) GTEST_SKIP() << "needs root";
  if (GetParam().needsRoot) {
    ASSERT_TRUE(test::ScratchMount::isolate());
  }
  test::TempDir dir;
  const std::string top = dir.mkdir("volume");
  GetParam().build(dir, top);
  const std::string expected = GetParam().expected.empty() ? "" : top + "/" + GetParam().expected;
  EXPECT_EQ(VolumeTrashes::trashOf(top, kUid), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, VolumeTrashLayoutTest,
    ::testing::Values(LayoutCase{"None", [](auto&, auto&) {}, ""},
                      LayoutCase{"PerUserFolder",
                                 [](auto&, const std::string& top) {
                                   fs::create_directories(top + "/.Trash-" + kId + "/files");
                                 },
                                 ".Trash-" + kId + "/files"},
                      LayoutCase{"SharedStickyFolderFirst",
                                 [](auto&, const std::string& top) {
                                   stickyFolder(top + "/.Trash");
                                   fs::create_directories(top + "/.Trash/" + kId + "/files");
                                   fs::create_directories(top + "/.Trash-" + kId + "/files");
                                 },
                                 ".Trash/" + kId + "/files"},
                      LayoutCase{"SharedFolderNotStickyIgnored",
                                 [](auto&, const std::string& top) {
                                   fs::create_directories(top + "/.Trash/" + kId + "/files");
                                   ::chmod((top + "/.Trash").c_str(), 0777);
                                   fs::create_directories(top + "/.Trash-" + kId + "/files");
                                 },
                                 ".Trash-" + kId + "/files"},
                      LayoutCase{"SharedFolderALinkIgnored",
                                 [](const test::TempDir& dir, const std::string& top) {
                                   const std::string elsewhere = dir / "elsewhere";
                                   stickyFolder(elsewhere);
                                   fs::create_directories(elsewhere + "/" + kId + "/files");
                                   fs::create_symlink(elsewhere, top + "/.Trash");
                                 },
                                 ""},
                      LayoutCase{"SharedStickyWithoutTheUserFallsBack",
                                 [](auto&, const std::string& top) {
                                   stickyFolder(top + "/.Trash");
                                   fs::create_directories(top + "/.Trash-" + kId + "/files");
                                 },
                                 ".Trash-" + kId + "/files"},
                      LayoutCase{"PerUserFolderALinkIgnored",
                                 [](const test::TempDir& dir, const std::string& top) {
                                   fs::create_directories(dir / "elsewhere/files");
                                   fs::create_symlink(dir / "elsewhere", top + "/.Trash-" + kId);
                                 },
                                 ""},
                      LayoutCase{"FilesALinkIgnored",
                                 [](const test::TempDir& dir, const std::string& top) {
                                   fs::create_directories(top + "/.Trash-" + kId);
                                   fs::create_symlink(dir.mkdir("big"),
                                                      top + "/.Trash-" + kId + "/files");
                                 },
                                 ""},
                      LayoutCase{"FilesAFileIgnored",
                                 [](const test::TempDir& dir, const std::string& top) {
                                   dir.write("volume/.Trash-" + kId + "/files", "not a folder");
                                   (void)top;
                                 },
                                 ""},
                      LayoutCase{"FilesMissingIgnored",
                                 [](auto&, const std::string& top) {
                                   fs::create_directories(top + "/.Trash-" + kId + "/info");
                                 },
                                 ""},
                      LayoutCase{"AnotherUsersFolderIgnored",
                                 [](auto&, const std::string& top) {
                                   const std::string trash = top + "/.Trash-" + kId;
                                   fs::create_directories(trash + "/files");
                                   ASSERT_EQ(::chown(trash.c_str(), kUid + 1, 0), 0);
                                 },
                                 "", true}),
    [](const auto& param) { return std::string(param.param.name); });

class VolumeTrashesTest : public ::testing::Test {
 protected:
  std::string volume(const std::string& name) {
    const std::string top = dir.mkdir(name);
    fs::create_directories(top + "/.Trash-" + kId + "/files");
    return top;
  }
  static MountEntry mount(const std::string& point, const std::string& type = "ext4") {
    return MountEntry{"/", point, type, "/dev/sdz1", "8:1", "rw"};
  }
  test::TempDir dir;
};

TEST_F(VolumeTrashesTest, ListsExistingTrashesOnceInTableOrderLeavingPseudoFileSystemsOut) {
  const std::string a = volume("a"), b = volume("b with space"), c = volume("c");
  const std::vector<MountEntry> mounts{
      mount(b), mount(dir / "empty"), mount(c, "proc"),      mount(a, "tmpfs"),
      mount(b), mount("relative"),    mount(dir / "missing")};
  dir.mkdir("empty");
  const std::string trash = "/.Trash-" + kId + "/files";
  EXPECT_EQ(VolumeTrashes::find(mounts, "", kUid),
            (std::vector<std::string>{b + trash, a + trash}));
}

TEST_F(VolumeTrashesTest, TheHomeTrashsFileSystemIsLeftOut) {
  const std::string a = volume("a");
  const std::string home = dir.mkdir("home/.local/share/Trash/files");
  EXPECT_TRUE(VolumeTrashes::find({mount(a)}, home, kUid).empty());
}

TEST_F(VolumeTrashesTest, ReadsTheTableAtAPathWithEscapedNames) {
  const std::string top = volume("my disk");
  const std::string escaped = dir / "my\\040disk";
  const std::string table =
      dir.write("mountinfo", "80 22 8:1 / " + escaped + " rw - ext4 /dev/x rw\n");
  EXPECT_EQ(VolumeTrashes::find(table, ""),
            std::vector<std::string>{top + "/.Trash-" + kId + "/files"});
  EXPECT_TRUE(VolumeTrashes::find(dir / "no-table", "").empty());
}

}  // namespace volume_trashes_test
}  // namespace vexa
