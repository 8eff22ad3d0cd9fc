// The application cache file: what it holds, what it refuses, and that writers finishing out of
// order leave the latest table.
#include "monitors/ApplicationCache.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "support/AppFixtures.h"
#include "support/TempDir.h"
#include "util/PropertyList.h"
#include "vexa/util/MonitorData.h"

namespace vexa {
namespace application_cache_test {

using nlohmann::json;

std::shared_ptr<const AppFile> record(const std::string& path, bool removed = false) {
  auto app = std::make_shared<AppFile>();
  app->appPath = path;
  app->appBundleIdentifer = "com.example." + path.substr(path.rfind('/') + 1);
  app->executableArchs = std::vector<int64_t>{0x01000007};
  app->needForceRemove = removed;
  return app;
}

std::string gzip(std::string_view bytes) {
  auto packed = MonitorData::gzipData(bytes);
  return std::string(reinterpret_cast<const char*>(packed->data()), packed->size());
}

std::string plistCache(const json& root) { return gzip(*PropertyList::toBinary(root)); }

TEST(ApplicationCacheTest, RecordsComeBackAsTheyWent) {
  const ApplicationCache::Records records{{"/apps/Editor.app", record("/apps/Editor.app")},
                                          {"/trash/Old.app", record("/trash/Old.app", true)}};
  auto bytes = ApplicationCache::encode(records);
  ASSERT_TRUE(bytes);
  auto back = ApplicationCache::decode(*bytes);
  ASSERT_TRUE(back);
  ASSERT_EQ(back->size(), 2u);
  for (const auto& [path, app] : records) EXPECT_EQ(back->at(path)->toJSON(), app->toJSON());

  // Records that do not decode are left out; the others stay.
  back = ApplicationCache::decode(plistCache(
      {{"InstallApp", {{"/a.app", record("/a.app")->toJSON()}, {"/b.app", "{"}, {"/c.app", 7}}}}));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->size(), 1u);
  EXPECT_TRUE(back->count("/a.app"));
}

class NotACacheTest : public ::testing::TestWithParam<std::pair<const char*, std::string>> {};

TEST_P(NotACacheTest, GivesNothing) {
  EXPECT_FALSE(ApplicationCache::decode(GetParam().second)) << GetParam().first;
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, NotACacheTest,
    ::testing::Values(std::pair{"empty", std::string()},
                      std::pair{"not gzip", std::string("bplist00 but not compressed")},
                      std::pair{"gzip of text", gzip("not a property list")},
                      std::pair{"no InstallApp key", plistCache({{"Installed", json::object()}})},
                      std::pair{"InstallApp not a dictionary", plistCache({{"InstallApp", "x"}})},
                      std::pair{"truncated",
                                plistCache({{"InstallApp", json::object()}}).substr(0, 12)}));

TEST(ApplicationCacheTest, AnEarlierSnapshotNeverReplacesALaterOne) {
  test::TempDir dir;
  const std::string folder = dir / "cache", file = dir / "cache/appcache.dat";
  dir.write("cache", "a file where the folder goes");
  ApplicationCache cache;
  const ApplicationCache::Records one{{"/a.app", record("/a.app")}};
  const ApplicationCache::Records two{{"/a.app", record("/a.app")}, {"/b.app", record("/b.app")}};
  cache.store(folder, file, two, 2);
  cache.store(folder, file, one, 1);  // taken before, written after
  auto onDisk = ApplicationCache::read(file);
  ASSERT_TRUE(onDisk);
  EXPECT_EQ(onDisk->size(), 2u);
  cache.store(folder, file, {}, 3);
  onDisk = ApplicationCache::read(file);
  ASSERT_TRUE(onDisk);
  EXPECT_TRUE(onDisk->empty());
  EXPECT_FALSE(ApplicationCache::read(folder));
}

TEST(ApplicationCacheTest, EachStoreReturnsWithItsSnapshotOrALaterOneOnDisk) {
  test::TempDir dir;
  const std::string folder = dir / "cache", file = dir / "cache/appcache.dat";
  ApplicationCache cache;
  // Snapshot n holds n records; the stores overlap as a burst of changes makes them.
  constexpr size_t kStores = 24;
  std::vector<ApplicationCache::Records> snapshots(kStores + 1);
  for (size_t n = 1; n <= kStores; ++n) {
    snapshots[n] = snapshots[n - 1];
    const std::string path = "/apps/" + std::to_string(n) + ".app";
    snapshots[n][path] = record(path);
  }
  std::vector<size_t> seen(kStores + 1);
  std::vector<std::thread> threads;
  for (size_t n = 1; n <= kStores; ++n) {
    threads.emplace_back([&, n] {
      cache.store(folder, file, snapshots[n], n);
      const auto onDisk = ApplicationCache::read(file);
      seen[n] = onDisk ? onDisk->size() : 0;
    });
  }
  for (auto& thread : threads) thread.join();
  for (size_t n = 1; n <= kStores; ++n) EXPECT_GE(seen[n], n) << n;
  const auto last = ApplicationCache::read(file);
  ASSERT_TRUE(last);
  EXPECT_EQ(last->size(), kStores);
}

}  // namespace application_cache_test
}  // namespace vexa
