// Which package owns a desktop entry: dpkg, Flatpak and Snap databases read from fixture trees.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "monitors/PackageDatabase.h"
#include "monitors/PackageMetadata.h"
#include "support/TempDir.h"

namespace vexa {
namespace package_database_test {

namespace fs = std::filesystem;
using test::TempDir;

const std::string kRoot = std::string(VEXA_TEST_DATA_DIR) + "/packages/root";
constexpr const char* kApps = "/usr/share/applications/";

// A writable copy of the fixture tree, for the tests that change or break it.
struct FixtureCopy {
  FixtureCopy() {
    fs::copy(kRoot, root, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }
  TempDir dir;
  const std::string root = dir / "root";
  std::string operator/(const std::string& relative) const { return root + "/" + relative; }
};

void overwrite(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

struct VersionCase {
  const char* debian;
  const char* upstream;
};

void PrintTo(const VersionCase& c, std::ostream* os) { *os << c.debian; }

class UpstreamVersionTest : public ::testing::TestWithParam<VersionCase> {};

TEST_P(UpstreamVersionTest, DropsEpochAndRevision) {
  EXPECT_EQ(PackageMetadata::upstreamVersion(GetParam().debian), GetParam().upstream);
}

INSTANTIATE_TEST_SUITE_P(
    Versions, UpstreamVersionTest,
    ::testing::Values(VersionCase{"1:2.5.1-3", "2.5.1"}, VersionCase{"2.0~rc1-1", "2.0~rc1"},
                      VersionCase{"1.2+dfsg-4ubuntu1", "1.2+dfsg"}, VersionCase{"3.2.2", "3.2.2"},
                      VersionCase{"2:1.0", "1.0"}, VersionCase{"1.0-beta-2", "1.0-beta"},
                      VersionCase{"10:4.3-1+deb12u1", "4.3"}));

struct OwnerCase {
  const char* path;   // below the fixture root
  const char* owner;  // "" for none
  const char* version;
  uint64_t minimumSize;
  uint64_t maximumSize;
};

// The file name, bytes outside ASCII shown as '?', so that test names stay printable.
void PrintTo(const OwnerCase& c, std::ostream* os) {
  for (char ch : fs::path(c.path).filename().string()) *os << (ch > ' ' && ch < 127 ? ch : '?');
}

class OwnerTest : public ::testing::TestWithParam<OwnerCase> {};

TEST_P(OwnerTest, FromTheFixtureTree) {
  const OwnerCase& c = GetParam();
  auto owner = PackageDatabase::system(kRoot)->ownerOf(kRoot + c.path);
  if (*c.owner == '\0') {
    EXPECT_FALSE(owner) << owner->name;
    return;
  }
  ASSERT_TRUE(owner);
  EXPECT_EQ(owner->name, c.owner);
  EXPECT_EQ(owner->version, c.version);
  ASSERT_TRUE(owner->installedSize);
  EXPECT_GE(*owner->installedSize, c.minimumSize);
  EXPECT_LE(*owner->installedSize, c.maximumSize);
}

const uint64_t kNosizeEntry = fs::file_size(kRoot + kApps + "nosize.desktop");

INSTANTIATE_TEST_SUITE_P(
    Packages, OwnerTest,
    ::testing::Values(
        OwnerCase{"/usr/share/applications/htop.desktop", "htop", "3.2.2-2", 360 * 1024,
                  360 * 1024},
        // Listed in "editor:amd64.list".
        OwnerCase{"/usr/share/applications/editor.desktop", "editor", "1:2.5.1-3", 2048 * 1024,
                  2048 * 1024},
        // Two packages list it: the name that sorts first wins, not the status file's order.
        OwnerCase{"/usr/share/applications/shared.desktop", "alpha-tools", "1.2+dfsg-4ubuntu1",
                  20 * 1024, 20 * 1024},
        // No Installed-Size: the regular files its list names (a missing one and folders
        // count nothing).
        OwnerCase{"/usr/share/applications/nosize.desktop", "nosize", "0.9", 3000 + kNosizeEntry,
                  3000 + kNosizeEntry},
        // A path that is not UTF-8 is matched byte for byte.
        OwnerCase{"/usr/share/applications/\xc3(bad.desktop", "editor", "1:2.5.1-3", 0, UINT64_MAX},
        OwnerCase{"/usr/share/applications/nolist.desktop", "", "", 0, 0},
        OwnerCase{"/usr/share/applications/removed.desktop", "", "", 0, 0},
        OwnerCase{"/usr/share/applications/unknown.desktop", "", "", 0, 0},
        OwnerCase{"/var/lib/flatpak/exports/share/applications/org.example.Paint.desktop",
                  "org.example.Paint", "4.1.2", 20000, 1 << 20},
        OwnerCase{"/var/lib/snapd/desktop/applications/hello_hello.desktop", "hello", "2.10", 4096,
                  4096},
        OwnerCase{"/var/lib/snapd/desktop/applications/absent_absent.desktop", "", "", 0, 0}));

TEST(PackageDatabaseTest, APathOutsideTheRootIsNotOwned) {
  EXPECT_FALSE(PackageDatabase::system(kRoot)->ownerOf("/usr/share/applications/htop.desktop"));
  EXPECT_FALSE(PackageDatabase::system(kRoot)->ownerOf(kRoot + "-other" + kApps + "htop.desktop"));
}

TEST(PackageDatabaseTest, TheIndexFollowsTheStatusFile) {
  FixtureCopy copy;
  auto database = PackageDatabase::system(copy.root);
  const std::string htop = copy / "usr/share/applications/htop.desktop";
  ASSERT_EQ(database->ownerOf(htop)->version, "3.2.2-2");

  // Upgraded: same inode when rewritten in place, a different size and time.
  std::string status = test::readFile(copy / "var/lib/dpkg/status");
  status.replace(status.find("Version: 3.2.2-2"), 16, "Version: 3.3.0-1~bpo12+1");
  overwrite(copy / "var/lib/dpkg/status", status);
  EXPECT_EQ(database->ownerOf(htop)->version, "3.3.0-1~bpo12+1");

  // Removed.
  status.replace(status.find("Package: htop"), 13, "Package: gone-away");
  overwrite(copy / "var/lib/dpkg/status", status);
  EXPECT_FALSE(database->ownerOf(htop));
}

// dpkg renames an entry into place and records it afterwards: until the status file is written
// again the database cannot know of it.
TEST(PackageDatabaseTest, ADpkgFolderEntryNewerThanTheStatusFileIsNotCaughtUpWith) {
  FixtureCopy copy;
  auto database = PackageDatabase::system(copy.root);
  const auto past = fs::file_time_type::clock::now() - std::chrono::hours(1);
  fs::last_write_time(copy / "var/lib/dpkg/status", past);
  const std::string fresh = copy / "usr/share/applications/fresh.desktop";
  overwrite(fresh, "[Desktop Entry]\n");
  EXPECT_FALSE(database->caughtUpWith(fresh));
  EXPECT_TRUE(database->caughtUpWith(copy / "opt/tool/gone.desktop"));  // nothing to wait for

  // Not dpkg's to record: the administrator's /usr/local, other folders, other kinds of file.
  for (const char* relative :
       {"usr/local/share/applications/mine.desktop",
        "home/me/.local/share/applications/mine.desktop", "usr/share/applications/notes.txt"}) {
    fs::create_directories(fs::path(copy / relative).parent_path());
    overwrite(copy / relative, "x");
    EXPECT_TRUE(database->caughtUpWith(copy / relative)) << relative;
  }

  overwrite(copy / "var/lib/dpkg/status", test::readFile(copy / "var/lib/dpkg/status"));
  EXPECT_TRUE(database->caughtUpWith(fresh));
  fs::remove(copy / "var/lib/dpkg/status");  // no dpkg at all
  fs::last_write_time(fresh, fs::file_time_type::clock::now());
  EXPECT_TRUE(database->caughtUpWith(fresh));
}

TEST(PackageDatabaseTest, ACorruptOrTruncatedStatusFileAnswersWhatItCan) {
  FixtureCopy copy;
  const std::string status = test::readFile(copy / "var/lib/dpkg/status");
  const std::string editor = copy / "usr/share/applications/editor.desktop";
  const std::string htop = copy / "usr/share/applications/htop.desktop";

  // Cut in the middle of the third stanza, before its Installed-Size.
  overwrite(copy / "var/lib/dpkg/status", status.substr(0, status.find("Installed-Size: 2048")));
  auto database = PackageDatabase::system(copy.root);
  EXPECT_EQ(database->ownerOf(htop)->version, "3.2.2-2");
  auto owner = database->ownerOf(editor);
  ASSERT_TRUE(owner);
  EXPECT_EQ(owner->version, "1:2.5.1-3");
  EXPECT_EQ(owner->installedSize, fs::file_size(editor));  // the one file its list names

  std::string garbage(4096, '\0');
  for (size_t i = 0; i < garbage.size(); ++i) garbage[i] = static_cast<char>((i * 131) % 256);
  overwrite(copy / "var/lib/dpkg/status", garbage);
  EXPECT_FALSE(database->ownerOf(htop));
  fs::remove(copy / "var/lib/dpkg/status");
  EXPECT_FALSE(database->ownerOf(htop));
}

TEST(PackageDatabaseTest, BrokenFlatpakAndSnapMetadataLeaveOnlyTheVersionOut) {
  FixtureCopy copy;
  const std::string deployment =
      copy / "var/lib/flatpak/app/org.example.Paint/x86_64/stable/0a1b2c";
  const std::string metainfo = deployment + "/files/share/metainfo/org.example.Paint.metainfo.xml";
  const std::string paint =
      copy / "var/lib/flatpak/exports/share/applications/org.example.Paint.desktop";
  auto database = PackageDatabase::system(copy.root);

  overwrite(metainfo, "\x89PNG not xml <release");
  auto owner = database->ownerOf(paint);
  ASSERT_TRUE(owner);
  EXPECT_FALSE(owner->version);

  // 50 MB: not read at all.
  overwrite(metainfo, "<release version=\"9\"/>");
  fs::resize_file(metainfo, 50u << 20);
  const auto start = std::chrono::steady_clock::now();
  owner = database->ownerOf(paint);
  ASSERT_TRUE(owner);
  EXPECT_FALSE(owner->version);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));

  overwrite(copy / "snap/hello/42/meta/snap.yaml", "name: hello\nsummary: no version\n");
  owner = database->ownerOf(copy / "var/lib/snapd/desktop/applications/hello_hello.desktop");
  ASSERT_TRUE(owner);
  EXPECT_FALSE(owner->version);
  EXPECT_EQ(owner->installedSize, 4096u);
}

TEST(PackageDatabaseTest, SymlinkLoopsEndTheFlatpakWalk) {
  FixtureCopy copy;
  const std::string files =
      copy / "var/lib/flatpak/app/org.example.Paint/x86_64/stable/0a1b2c/files";
  fs::create_directory_symlink(".", files + "/loop");
  fs::create_directory_symlink("../exports",
                               copy / "var/lib/flatpak/exports/share/applications/up");
  fs::create_symlink("self.desktop",
                     copy / "var/lib/flatpak/exports/share/applications/self.desktop");
  auto database = PackageDatabase::system(copy.root);
  auto owner = database->ownerOf(copy /
                                 "var/lib/flatpak/exports/share/applications/"
                                 "org.example.Paint.desktop");
  ASSERT_TRUE(owner);
  EXPECT_LT(*owner->installedSize, 1u << 20);
  EXPECT_FALSE(database->ownerOf(copy / "var/lib/flatpak/exports/share/applications/self.desktop"));
  EXPECT_FALSE(database->ownerOf(copy / "var/lib/flatpak/exports/share/applications/up/x.desktop"));
}

struct ReleaseCase {
  const char* xml;
  const char* version;  // "" for none
};

void PrintTo(const ReleaseCase& c, std::ostream* os) { *os << '"' << c.version << '"'; }

class ReleaseVersionTest : public ::testing::TestWithParam<ReleaseCase> {};

TEST_P(ReleaseVersionTest, FirstReleaseOnly) {
  auto version = PackageMetadata::firstReleaseVersion(GetParam().xml);
  if (*GetParam().version == '\0') {
    EXPECT_FALSE(version) << *version;
  } else {
    EXPECT_EQ(version, GetParam().version);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Metainfo, ReleaseVersionTest,
    ::testing::Values(ReleaseCase{"<releases><release version=\"1.2\"/></releases>", "1.2"},
                      ReleaseCase{"<releases>\n<release\n date='x' version='3.0'>", "3.0"},
                      ReleaseCase{"<release timestamp=\"1\" xversion=\"2\" version = \"4\"/>", "4"},
                      ReleaseCase{"<releases></releases>", ""},
                      ReleaseCase{"<release date=\"2020\"/><release version=\"9\"/>", ""},
                      ReleaseCase{"<release version=\"unterminated", ""},
                      ReleaseCase{"<release version=\"\"/>", ""}, ReleaseCase{"", ""},
                      ReleaseCase{"<release", ""}));

TEST(PackageMetadataTest, SnapVersionIsTheTopLevelKey) {
  EXPECT_EQ(PackageMetadata::snapVersion("name: a\nversion: 1.0.2\n"), "1.0.2");
  EXPECT_EQ(PackageMetadata::snapVersion("version: '2.3' # upstream\n"), "2.3");
  EXPECT_FALSE(PackageMetadata::snapVersion("name: a\napps:\n  a:\n    version: 1\n"));
  EXPECT_FALSE(PackageMetadata::snapVersion("version:\n"));
}

TEST(PackageMetadataTest, ListsNameAbsolutePathsOnly) {
  EXPECT_EQ(PackageMetadata::listedPaths("/.\n/usr\n\nrelative\n/a b\r\n/last"),
            (std::vector<std::string_view>{"/.", "/usr", "/a b\r", "/last"}));
}

TEST(PackageMetadataTest, OnlyInstalledStanzasWithANameCount) {
  auto packages = PackageMetadata::parseDpkgStatus(
      "Package: a\nStatus: install ok installed\nVersion: 1\nInstalled-Size: x12\n\n"
      "Status: install ok installed\nVersion: 2\n\n"
      "Package: c\nStatus: install ok half-configured\n\n"
      "Package: d\r\nStatus: install ok installed\r\nArchitecture: i386\r\n");
  ASSERT_EQ(packages.size(), 2u);
  EXPECT_EQ(packages[0].name, "a");
  EXPECT_EQ(packages[0].version, "1");
  EXPECT_FALSE(packages[0].installedKiB);
  EXPECT_EQ(packages[1].name, "d");
  EXPECT_EQ(packages[1].architecture, "i386");
  EXPECT_FALSE(packages[1].version);
}

}  // namespace package_database_test
}  // namespace vexa
