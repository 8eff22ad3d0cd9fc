// Records of desktop entries that a package owns: the package's version and size, not the
// entry's; a .deb really installed where the machine allows it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "monitors/MonitorFixture.h"
#include "monitors/PackageDatabase.h"
#include "support/AppFixtures.h"

namespace vexa {
namespace package_record_test {

namespace fs = std::filesystem;
using test::makeDesktopEntry;

const std::string kRoot = std::string(VEXA_TEST_DATA_DIR) + "/packages/root";

class PackageRecordTest : public test::MonitorFixture {
 protected:
  PackageRecordTest() { monitor->setPackageDatabase(PackageDatabase::system(kRoot)); }
};

struct RecordCase {
  const char* path;  // below the fixture root
  const char* version;
  uint64_t size;
};

void PrintTo(const RecordCase& c, std::ostream* os) { *os << fs::path(c.path).filename().string(); }

class OwnedRecordTest : public PackageRecordTest,
                        public ::testing::WithParamInterface<RecordCase> {};

TEST_P(OwnedRecordTest, TakesThePackagesVersionAndSize) {
  auto app = fill(kRoot + GetParam().path);
  ASSERT_TRUE(app);
  EXPECT_EQ(app->appVersion, GetParam().version);
  if (GetParam().size) {
    EXPECT_EQ(app->appSize, GetParam().size);
  } else {
    EXPECT_GT(app->appSize, 20000u);  // the deployment, not the entry
  }
}

INSTANTIATE_TEST_SUITE_P(
    Owners, OwnedRecordTest,
    ::testing::Values(
        RecordCase{"/usr/share/applications/editor.desktop", "2.5.1", 2048 * 1024},
        RecordCase{"/var/lib/flatpak/exports/share/applications/org.example.Paint.desktop", "4.1.2",
                   0},
        RecordCase{"/var/lib/snapd/desktop/applications/hello_hello.desktop", "2.10", 4096}));

TEST_F(PackageRecordTest, AnEntryNoPackageOwnsKeepsItsOwnValues) {
  // "Version" is the desktop entry format's version.
  const std::string plain =
      makeDesktopEntry(dir, "home/.local/share/applications/plain.desktop", "P", "Version=1.0\n");
  auto app = fill(plain);
  ASSERT_TRUE(app);
  EXPECT_FALSE(app->appVersion);
  EXPECT_EQ(app->appSize, fs::file_size(plain));

  app = fill(makeDesktopEntry(dir, "home/.local/share/applications/tagged.desktop", "T",
                              "Version=1.5\nX-AppVersion=3.2\n"));
  ASSERT_TRUE(app);
  EXPECT_EQ(app->appVersion, "3.2");

  // An entry of the fixture tree that no installed package lists.
  app = fill(kRoot + "/usr/share/applications/removed.desktop");
  ASSERT_TRUE(app);
  EXPECT_FALSE(app->appVersion);
  EXPECT_EQ(app->appSize, fs::file_size(kRoot + "/usr/share/applications/removed.desktop"));

  // Without a database even an owned entry keeps its own values.
  monitor->setPackageDatabase(nullptr);
  const std::string htop = kRoot + "/usr/share/applications/htop.desktop";
  app = fill(htop);
  ASSERT_TRUE(app);
  EXPECT_FALSE(app->appVersion);
  EXPECT_EQ(app->appSize, fs::file_size(htop));
}

// Runs a shell command; true when it exits 0.
bool run(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

// Purges the package when the test ends, however it ends.
struct InstalledPackage {
  explicit InstalledPackage(std::string package) : name(std::move(package)) {}
  ~InstalledPackage() { run("dpkg --purge " + name); }
  std::string name;
};

TEST(RealDpkgTest, AnInstalledPackageIsFoundAfterTheStatusFileChanged) {
  if (geteuid() != 0 || !run("command -v dpkg-deb") || !run("command -v dpkg")) {
    GTEST_SKIP() << "needs root, dpkg and dpkg-deb";
  }
  const std::string name = "vexa-test-package-owner";
  const std::string entry = "/usr/share/applications/" + name + ".desktop";
  test::TempDir dir;
  dir.write("pkg/DEBIAN/control", "Package: " + name +
                                      "\nVersion: 1:3.4.5-2\nArchitecture: all\n"
                                      "Maintainer: Tests <tests@example.com>\n"
                                      "Description: a test package\n");
  dir.write("pkg" + entry, "[Desktop Entry]\nType=Application\nName=Owner\nVersion=1.0\nExec=sh\n");
  dir.write("pkg/usr/share/" + name + "/payload", std::string(1 << 20, 'p'));
  ASSERT_TRUE(run("dpkg-deb --root-owner-group --build " + dir / "pkg" + " " + dir / "p.deb"));

  auto database = PackageDatabase::system();
  EXPECT_FALSE(database->ownerOf(entry));  // indexes the database as it is now
  InstalledPackage installed(name);
  ASSERT_TRUE(run("dpkg -i " + dir / "p.deb"));
  auto owner = database->ownerOf(entry);
  ASSERT_TRUE(owner);
  EXPECT_EQ(owner->name, name);
  EXPECT_EQ(owner->version, "1:3.4.5-2");
  ASSERT_TRUE(owner->installedSize);
  EXPECT_GE(*owner->installedSize, 1u << 20);
}

}  // namespace package_record_test
}  // namespace vexa
