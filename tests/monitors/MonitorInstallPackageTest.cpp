#include "vexa/monitors/MonitorInstallPackage.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "monitors/FindInventory.h"
#include "monitors/LiveMonitorFixture.h"
#include "monitors/PathListCache.h"

namespace vexa {
namespace monitor_install_package_test {

namespace fs = std::filesystem;
using nlohmann::json;
using Strings = std::vector<std::string>;

TEST(MonitorInstallPackageNames, ExtensionIsTestedCaseSensitively) {
  for (const char* yes : {"/h/a.pkg", "/h/a.dmg", "/h/a.deb", "/h/a.rpm", "/h/a.snap",
                          "/h/a.flatpak", "/h/a.flatpakref", "/h/a.run", "/h/x.tar.deb"}) {
    EXPECT_TRUE(MonitorInstallPackage::isInstallPackage(yes)) << yes;
  }
  for (const char* no : {"/h/Setup.PKG", "/h/a.AppImage", "/h/a.deb.crdownload", "/h/deb",
                         "/h/a.debx", "/h/x.deb/file", "/h/.deb/a", "/h/a."}) {
    EXPECT_FALSE(MonitorInstallPackage::isInstallPackage(no)) << no;
  }
}

// The monitor over the real event stream, with the real find for its inventory.
class MonitorInstallPackageTest : public test::LiveMonitorFixture {
 protected:
  MonitorInstallPackageTest() { isolated.dir.mkdir("home/Downloads"); }
  ~MonitorInstallPackageTest() override { release(monitor); }
  void start(std::shared_ptr<const FindInventory> inventory = nullptr) {
    monitor = MonitorInstallPackage::create(*dispatch, *server, std::move(inventory));
    monitor->setCacheFolderPath(cache());
    monitor->startMonitor();
  }
  std::string cache() const { return isolated.dir / "cache"; }
  std::string cacheFile() const { return cache() + "/packagecache.dat"; }
  std::string write(const std::string& relative) { return isolated.dir.write(relative, "x"); }
  // Waits for the add of a new package made after the events under test.
  void settle() {
    LiveMonitorFixture::settle("home/marker-" + std::to_string(++markers_) + ".run", "PackageAdd");
  }

  std::shared_ptr<MonitorInstallPackage> monitor;
  int markers_ = 0;
};

TEST_F(MonitorInstallPackageTest, FirstStartCachesTheInventoryAndAnnouncesNothing) {
  const std::string deb = write("home/Downloads/tool.deb");
  const std::string dmg = write("home/deep/er/disk.dmg");
  write("home/Downloads/Setup.PKG");
  write("home/Downloads/app.AppImage");
  start();
  Strings listed = monitor->packages();
  std::sort(listed.begin(), listed.end());
  EXPECT_EQ(listed, (Strings{deb, dmg}));
  auto cached = PathListCache("InstallPackage").read(cacheFile());
  ASSERT_EQ(cached.state, PathListCache::State::Read);
  std::sort(cached.paths.begin(), cached.paths.end());
  EXPECT_EQ(cached.paths, listed);
}

TEST_F(MonitorInstallPackageTest, APackageReportedTwiceIsAnnouncedOnce) {
  start();
  connectHost();
  const std::string pkg = write("home/Downloads/a.pkg");
  monitor->fileCreated(pkg);
  monitor->fileCreated(pkg);
  ASSERT_TRUE(waitFor(message("PackageAdd", pkg)));
  write("home/Downloads/Setup.PKG");
  settle();
  EXPECT_EQ(count(message("PackageAdd", pkg)), 1U);
  EXPECT_EQ(messages().size(), 2U);  // the package and the marker
  EXPECT_EQ(withoutMarkers(monitor->packages()), Strings{pkg});
}

TEST_F(MonitorInstallPackageTest, RenamesFollowTheSourcesExtension) {
  const std::string dmg = write("home/a.dmg");
  const std::string partial = write("home/Downloads/x.deb.crdownload");
  start();
  connectHost();
  // A package keeps its place under any new name.
  fs::rename(dmg, home + "/a.txt");
  ASSERT_TRUE(waitFor(message("PackageAdd", home + "/a.txt")));
  ASSERT_TRUE(waitFor(message("PackageRemove", dmg)));
  // A download that finishes by a rename becomes a package.
  fs::rename(partial, home + "/Downloads/x.deb");
  ASSERT_TRUE(waitFor(message("PackageAdd", home + "/Downloads/x.deb")));
  settle();
  Strings listed = withoutMarkers(monitor->packages());
  std::sort(listed.begin(), listed.end());
  EXPECT_EQ(listed, (Strings{home + "/Downloads/x.deb", home + "/a.txt"}));
  EXPECT_EQ(count(message("PackageAdd", home + "/a.txt")), 1U);
}

TEST_F(MonitorInstallPackageTest, DeletionIsAnnouncedAndCached) {
  const std::string rpm = write("home/b.rpm");
  start();
  connectHost();
  fs::remove(rpm);
  ASSERT_TRUE(waitFor(message("PackageRemove", rpm)));
  ASSERT_TRUE(test::eventually([&] {
    auto cached = PathListCache("InstallPackage").read(cacheFile());
    return cached.state == PathListCache::State::Read && cached.paths.empty();
  }));
}

TEST_F(MonitorInstallPackageTest, APackageCreatedAndRenamedAtOnceLeavesNothingStale) {
  start();
  connectHost();
  const std::string first = write("home/Downloads/first.snap");
  fs::rename(first, home + "/Downloads/second.snap");
  ASSERT_TRUE(waitFor(message("PackageAdd", home + "/Downloads/second.snap")));
  settle();
  EXPECT_EQ(withoutMarkers(monitor->packages()), Strings{home + "/Downloads/second.snap"});
  EXPECT_EQ(count(message("PackageAdd", first)), 0U);
}

TEST_F(MonitorInstallPackageTest, APackageDeletedWhileStoppedIsDroppedSilently) {
  const std::string gone = write("home/gone.flatpak");
  const std::string kept = write("home/kept.flatpakref");
  start();
  release(monitor);
  fs::remove(gone);
  connectHost();
  start();
  EXPECT_EQ(monitor->packages(), Strings{kept});
  auto cached = PathListCache("InstallPackage").read(cacheFile());
  EXPECT_EQ(cached.paths, Strings{kept});
  settle();
  EXPECT_EQ(count(message("PackageRemove", gone)), 0U);
}

// Counts inventories; lists what it is given.
struct FakeFind {
  std::shared_ptr<FindInventory> inventory(Strings listing) {
    return std::make_shared<FindInventory>(
        [this, listing](const Strings&) {
          ++runs;
          ProcessRunner::Result result;
          result.started = true;
          result.status = 0;
          for (const auto& line : listing) result.output += line + "\n";
          return result;
        },
        [](const json&) { return std::optional<std::string>(); });
  }
  std::atomic<int> runs{0};
};

struct CacheCase {
  const char* name;
  std::function<void(const std::string& file)> make;
  int inventories;  // at start
  bool rewritten;   // the file is a decodable cache afterwards
};

void PrintTo(const CacheCase& c, std::ostream* os) { *os << c.name; }

class PackageCacheTest : public MonitorInstallPackageTest,
                         public ::testing::WithParamInterface<CacheCase> {};

TEST_P(PackageCacheTest, StartsFromWhatTheCacheFolderHolds) {
  const std::string pkg = write("home/p.pkg");
  isolated.dir.mkdir("cache");
  GetParam().make(cacheFile());
  FakeFind find;
  start(find.inventory({pkg}));
  EXPECT_EQ(find.runs, GetParam().inventories);
  EXPECT_EQ(PathListCache("InstallPackage").read(cacheFile()).state == PathListCache::State::Read,
            GetParam().rewritten);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PackageCacheTest,
    ::testing::Values(
        CacheCase{"Missing", [](const std::string&) {}, 1, true},
        CacheCase{"Garbage", [](const std::string& f) { std::ofstream(f) << "not gzip"; }, 1, true},
        CacheCase{"Fifo", [](const std::string& f) { ::mkfifo(f.c_str(), 0600); }, 1, true},
        CacheCase{"Folder", [](const std::string& f) { fs::create_directories(f + "/x"); }, 1,
                  true},
        CacheCase{"LinkLoop", [](const std::string& f) { fs::create_symlink(f, f); }, 1, true},
        CacheCase{"GzipBomb",
                  [](const std::string& f) {
                    std::string zeros(300u << 20, '\0');
                    auto packed = MonitorData::gzipData(std::string_view(zeros));
                    std::ofstream(f, std::ios::binary)
                        .write(reinterpret_cast<const char*>(packed->data()),
                               static_cast<std::streamsize>(packed->size()));
                  },
                  1, true},
        CacheCase{"WrongTypes",
                  [](const std::string& f) {
                    std::ofstream(f, std::ios::binary) << *PathListCache("Other").encode({"/x"});
                  },
                  1, true},
        // A valid empty cache: nothing to check again.
        CacheCase{"Empty",
                  [](const std::string& f) {
                    std::ofstream(f, std::ios::binary)
                        << *PathListCache("InstallPackage").encode({});
                  },
                  0, true}),
    [](const auto& c) { return std::string(c.param.name); });

TEST_F(MonitorInstallPackageTest, ANonEmptyCacheIsCheckedAgainInTheBackground) {
  const std::string cached = write("home/old.deb");
  const std::string added = write("home/new.deb");
  isolated.dir.mkdir("cache");
  std::ofstream(cacheFile(), std::ios::binary)
      << *PathListCache("InstallPackage").encode({cached, home + "/vanished.deb"});
  FakeFind find;
  connectHost();
  start(find.inventory({cached, added, home + "/listed-but-gone.deb"}));
  ASSERT_TRUE(waitFor(message("PackageAdd", added)));
  EXPECT_EQ(monitor->packages(), (Strings{cached, added}));
  EXPECT_EQ(count(message("PackageAdd", cached)), 0U);
  EXPECT_EQ(find.runs, 1);
}

}  // namespace monitor_install_package_test
}  // namespace vexa
