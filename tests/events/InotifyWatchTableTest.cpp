#include "events/linux/InotifyWatchTable.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace vexa {
namespace inotify_watch_table_test {

using Paths = std::vector<std::string>;

// The table after `build`, listed as "wd path" in path order, with what was released.
struct Listing {
  std::vector<std::string> entries;
  std::vector<int> released;
};

class InotifyWatchTableTest : public ::testing::Test {
 protected:
  InotifyWatchTableTest() {
    int wd = 1;
    for (const char* path : {"/t", "/t/a", "/t/a/x", "/t/a/x/y", "/t/a-b", "/t/ab", "/t/b"}) {
      table.add(wd++, path);
    }
  }
  InotifyWatchTable::Release recorder(bool confirmed = true) {
    return [this, confirmed](int wd) {
      released.push_back(wd);
      return confirmed;
    };
  }
  Paths paths() const {
    Paths all;
    for (int wd = 0; wd < 32; ++wd) {
      if (auto path = table.pathOf(wd)) all.push_back(*path);
    }
    std::sort(all.begin(), all.end());
    return all;
  }

  InotifyWatchTable table;
  std::vector<int> released;
};

TEST_F(InotifyWatchTableTest, SubtreesAreRangesBoundedByComponents) {
  table.forgetTree("/t/a", recorder());
  EXPECT_EQ(paths(), (Paths{"/t", "/t/a-b", "/t/ab", "/t/b"}));
  EXPECT_EQ(released, (std::vector<int>{2, 3, 4}));
  EXPECT_EQ(table.size(), 4u);

  table.renameTree("/t/a-b", "/t/c");
  EXPECT_EQ(table.pathOf(5), "/t/c");
  EXPECT_FALSE(table.watchOf("/t/a-b"));
  table.renameTree("/t", "/u");  // the whole tree, sorted differently afterwards
  EXPECT_EQ(paths(), (Paths{"/u", "/u/ab", "/u/b", "/u/c"}));
  EXPECT_EQ(table.watchOf("/u/ab"), 6);

  table.forgetOutside({"/u/b", "/u/c/"}, recorder());
  EXPECT_EQ(paths(), (Paths{"/u/b", "/u/c"}));
  table.forgetTree("/", nullptr);  // nothing given back
  EXPECT_EQ(table.size(), 0u);
  EXPECT_EQ(released, (std::vector<int>{2, 3, 4, 1, 6}));
}

TEST_F(InotifyWatchTableTest, ARenamedSubtreeKeepsItsWatchesUnderTheNewName) {
  table.renameTree("/t/a", "/t/z");
  EXPECT_EQ(table.pathOf(2), "/t/z");
  EXPECT_EQ(table.pathOf(4), "/t/z/x/y");
  EXPECT_EQ(table.watchOf("/t/z/x"), 3);
  EXPECT_FALSE(table.watchOf("/t/a/x"));
  EXPECT_EQ(table.pathOf(5), "/t/a-b");  // a sibling sharing the prefix stays
  EXPECT_EQ(table.size(), 7u);
}

TEST_F(InotifyWatchTableTest, TheKernelsOwnRemovalDropsTheWatch) {
  table.ignored(3);
  EXPECT_FALSE(table.pathOf(3));
  EXPECT_FALSE(table.watchOf("/t/a/x"));
  EXPECT_EQ(table.pathOf(4), "/t/a/x/y");  // its own IN_IGNORED comes separately
  table.ignored(3);                        // twice, or for a wd never known: nothing
  table.ignored(99);
  EXPECT_EQ(table.size(), 6u);
}

TEST_F(InotifyWatchTableTest, AWatchGivenBackHasNoPathUntilItsIgnoredEvenWhenItsIdIsReused) {
  table.forgetTree("/t/b", recorder());
  ASSERT_EQ(released, std::vector<int>{7});
  // The kernel hands wd 7 to a new folder while the old watch's IN_IGNORED is still queued:
  // records before it are the old watch's.
  table.add(7, "/t/new");
  EXPECT_FALSE(table.pathOf(7));
  EXPECT_EQ(table.watchOf("/t/new"), 7);
  table.ignored(7);
  EXPECT_EQ(table.pathOf(7), "/t/new");
  table.ignored(7);  // now the new watch's own removal
  EXPECT_FALSE(table.pathOf(7));
}

TEST_F(InotifyWatchTableTest, AWatchTheKernelHadDroppedAlreadyIsNotAwaited) {
  table.forgetTree("/t/b", recorder(false));
  table.add(7, "/t/new");
  EXPECT_EQ(table.pathOf(7), "/t/new");
}

TEST_F(InotifyWatchTableTest, AReusedIdNamesOnlyItsNewPath) {
  table.add(6, "/t/elsewhere");  // the kernel's answer for wd 6 now
  EXPECT_FALSE(table.watchOf("/t/ab"));
  EXPECT_EQ(table.pathOf(6), "/t/elsewhere");
  EXPECT_EQ(table.size(), 7u);
}

TEST_F(InotifyWatchTableTest, ClearingForgetsAwaitedConfirmationsToo) {
  table.forgetTree("/t/b", recorder());
  table.clear();  // after an overflow the IN_IGNORED may be lost
  table.add(7, "/t/again");
  EXPECT_EQ(table.pathOf(7), "/t/again");
  EXPECT_EQ(table.size(), 1u);
}

}  // namespace inotify_watch_table_test
}  // namespace vexa
