#include "vexa/events/WatchQueuePathEntries.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace vexa {
namespace watch_queue_path_entries_test {

WatchQueuePathEntries::Entry entryFor(const std::string& path, int wd) {
  return std::make_shared<WatchQueuePathEntry>(path, wd, 0, 0, 0);
}

std::vector<std::string> pathsOf(const WatchQueuePathEntries& entries) {
  std::vector<std::string> paths;
  for (const auto& entry : entries) paths.push_back(entry->path());
  return paths;
}

// Paths whose order byte by byte differs from what a reader might guess: a space and a newline
// sort before "/", a byte that is not UTF-8 after every ASCII one, and a path is a prefix of
// others without being found by them.
TEST(WatchQueuePathEntriesTest, KeptSortedFoundOnlyByTheWholePathAndDroppedOnce) {
  const std::vector<std::string> order = {"/d/a",     "/d/a\n",          "/d/a b", "/d/a/b",
                                          "/d/a/b.c", "/d/b.crdownload", "/d/\xff"};
  WatchQueuePathEntries entries;
  // Appended in order, then in reverse, then from the middle out.
  for (const std::vector<size_t>& arrival : std::vector<std::vector<size_t>>{
           {0, 1, 2, 3, 4, 5, 6}, {6, 5, 4, 3, 2, 1, 0}, {3, 0, 6, 2, 4, 1, 5}}) {
    entries.clear();
    for (size_t at : arrival) entries.insert(entryFor(order[at], static_cast<int>(at)));
    ASSERT_EQ(pathsOf(entries), order);
  }

  // A second entry for a kept path leaves the first.
  EXPECT_EQ(entries.insert(entryFor("/d/a b", 99))->watchedFD(), 2);
  EXPECT_EQ(entries.size(), order.size());

  EXPECT_EQ(entries.find("/d/a/b")->watchedFD(), 3);
  for (const char* near : {"/d", "/d/a/", "/d/a/b.", "/d/b", "/d/\xfe", ""}) {
    EXPECT_EQ(entries.find(near), nullptr) << near;
    EXPECT_EQ(entries.erase(near), nullptr) << near;
  }

  const auto gone = entries.erase("/d/a");
  ASSERT_NE(gone, nullptr);
  EXPECT_EQ(gone->path(), "/d/a");  // handed back alive, for its watch to be given back
  EXPECT_EQ(entries.erase("/d/a"), nullptr);
  EXPECT_FALSE(entries.contains("/d/a"));
  EXPECT_TRUE(entries.contains("/d/a\n"));
  EXPECT_EQ(entries.size(), order.size() - 1);
}

// Thousands come and go (a burst of downloads): the order holds throughout, and every one can
// be dropped.
TEST(WatchQueuePathEntriesTest, ABurstComesAndGoesInAnyOrder) {
  WatchQueuePathEntries entries;
  std::vector<std::string> paths;
  for (int i = 0; i < 3000; ++i) paths.push_back("/d/" + std::to_string(i * 7919 % 3000));
  for (const auto& path : paths) entries.insert(entryFor(path, 0));
  auto sorted = paths;
  std::sort(sorted.begin(), sorted.end());
  ASSERT_EQ(pathsOf(entries), sorted);
  for (size_t i = 0; i < paths.size(); i += 2) ASSERT_NE(entries.erase(paths[i]), nullptr);
  for (size_t i = 1; i < paths.size(); i += 2) ASSERT_TRUE(entries.contains(paths[i]));
  for (size_t i = 1; i < paths.size(); i += 2) ASSERT_NE(entries.erase(paths[i]), nullptr);
  EXPECT_TRUE(entries.empty());
}

}  // namespace watch_queue_path_entries_test
}  // namespace vexa
