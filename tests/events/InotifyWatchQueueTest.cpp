#include "events/linux/InotifyWatchQueue.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <deque>

#include "events/FakeWatchQueueKernel.h"
#include "vexa/events/WatchQueueNotifications.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace inotify_watch_queue_test {

using namespace watchqueue;

// An engine over a fake kernel, turned by hand; Ready calls are collected.
class InotifyWatchQueueTest : public ::testing::Test {
 protected:
  InotifyWatchQueueTest() {
    auto owned = std::make_unique<test::FakeWatchQueueKernel>();
    kernel = owned.get();
    engine = std::make_unique<InotifyWatchQueue>(std::move(owned), false);
    engine->setReady([this](const std::string& path) { ready.push_back(path); });
  }
  void record(const std::string& path, uint32_t mask, const std::string& name = "") {
    engine->translate({InotifyRecord{kernel->wdOf(path), mask, 0, name}});
  }
  std::vector<std::string> takeReady() { return std::exchange(ready, {}); }
  // The engine keeps a reference to each path added: the fixture holds the strings, as the
  // queue's entries do.
  WatchQueueEngine::Added watch(const std::string& path, uint32_t flags) {
    return engine->add(paths.emplace_back(path), flags);
  }

  test::FakeWatchQueueKernel* kernel;
  std::deque<std::string> paths;
  std::unique_ptr<InotifyWatchQueue> engine;
  std::vector<std::string> ready;
};

// What changed before the record came, as the kernel's status would then tell.
enum class Change { None, Grown, Shrunk, Linked, Unlinked, Replaced };

struct BitCase {
  const char* label;
  bool folder;
  uint32_t flags;
  uint32_t mask;
  const char* name;
  Change change;
  uint32_t bits;
};

void PrintTo(const BitCase& c, std::ostream* os) { *os << c.label; }

class WatchQueueBitTable : public InotifyWatchQueueTest,
                           public ::testing::WithParamInterface<BitCase> {};

TEST_P(WatchQueueBitTable, RecordBecomesTheSubscribedBits) {
  const BitCase& c = GetParam();
  kernel->put("/w/item", 10, c.folder, 100, 2);
  ASSERT_EQ(watch("/w/item", c.flags).error, 0);
  const int wd = kernel->wdOf("/w/item");
  switch (c.change) {
    case Change::None:
      break;
    case Change::Grown:
      kernel->put("/w/item", 10, c.folder, 150, 2);
      break;
    case Change::Shrunk:
      kernel->put("/w/item", 10, c.folder, 50, 2);
      break;
    case Change::Linked:
      kernel->put("/w/item", 10, c.folder, 100, 3);
      break;
    case Change::Unlinked:
      kernel->erase("/w/item");
      break;
    case Change::Replaced:
      kernel->put("/w/item", 11, c.folder, 100, 1);
      break;
  }
  engine->translate({InotifyRecord{wd, c.mask, 0, c.name}});
  EXPECT_EQ(engine->take("/w/item"), c.bits);
  EXPECT_EQ(takeReady().size(), c.bits ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Records, WatchQueueBitTable,
    ::testing::Values(
        BitCase{"FileWritten", false, kAll, IN_MODIFY, "", Change::None, kWrite},
        BitCase{"FileGrew", false, kAll, IN_MODIFY, "", Change::Grown, kWrite | kSizeIncrease},
        BitCase{"FileShrank", false, kAll, IN_MODIFY, "", Change::Shrunk, kWrite},
        BitCase{"GrowthUnsubscribed", false, kWrite, IN_MODIFY, "", Change::Grown, kWrite},
        BitCase{"Chmod", false, kAll, IN_ATTRIB, "", Change::None, kAttributeChange},
        BitCase{"HardLinkMade", false, kAll, IN_ATTRIB, "", Change::Linked, kLinkCountChange},
        BitCase{"UnlinkedWhileOpen", false, kAll, IN_ATTRIB, "", Change::Unlinked, kDelete},
        BitCase{"RenamedOver", false, kAll, IN_ATTRIB, "", Change::Replaced, kDelete},
        BitCase{"DeleteSelf", false, kAll, IN_DELETE_SELF, "", Change::Unlinked, kDelete},
        BitCase{"MoveSelf", false, kAll, IN_MOVE_SELF, "", Change::None, kRename},
        BitCase{"MoveUnsubscribed", false, kDelete, IN_MOVE_SELF, "", Change::None, 0},
        BitCase{"Unmount", false, kAll, IN_UNMOUNT, "", Change::None, kAccessRevocation},
        BitCase{"EntryMade", true, kAll, IN_CREATE, "x", Change::None, kWrite},
        BitCase{"SubFolderMade", true, kAll, IN_CREATE | IN_ISDIR, "x", Change::None,
                kWrite | kLinkCountChange},
        BitCase{"SubFolderMovedOut", true, kWrite, IN_MOVED_FROM | IN_ISDIR, "x", Change::None,
                kWrite},
        BitCase{"ChildWrittenIsNotAWrite", true, kAll, IN_MODIFY, "x", Change::None, 0},
        BitCase{"ChildChmodIsNothing", true, kAll, IN_ATTRIB, "x", Change::None, 0},
        BitCase{"FolderChmod", true, kAll, IN_ATTRIB, "", Change::None, kAttributeChange}),
    [](const auto& test) { return std::string(test.param.label); });

TEST(InotifyWatchQueueMask, KernelMaskFollowsTheSubscribedBits) {
  EXPECT_EQ(InotifyWatchQueue::kernelMask(kWrite, false), uint32_t{IN_MODIFY});
  EXPECT_EQ(InotifyWatchQueue::kernelMask(kWrite, true),
            uint32_t{IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO});
  EXPECT_EQ(InotifyWatchQueue::kernelMask(kRename | kDelete, true),
            uint32_t{IN_MOVE_SELF | IN_DELETE_SELF | IN_ATTRIB});
  EXPECT_EQ(InotifyWatchQueue::kernelMask(kSizeIncrease, true), 0u);
  EXPECT_EQ(InotifyWatchQueue::kernelMask(kAccessRevocation, false), 0u);  // comes unasked
}

TEST_F(InotifyWatchQueueTest, AttributeChangeOfAMovedItemIsNotADeletion) {
  kernel->put("/w/a", 1);
  watch("/w/a", kAll);
  const int wd = kernel->wdOf("/w/a");
  kernel->move("/w/a", "/w/b");
  engine->translate({{wd, IN_MOVE_SELF, 0, ""}, {wd, IN_ATTRIB, 0, ""}});
  EXPECT_EQ(engine->take("/w/a"), kRename | kAttributeChange);
  engine->translate({{wd, IN_ATTRIB, 0, ""}});  // the rename was taken; the item is still away
  EXPECT_EQ(engine->take("/w/a"), kAttributeChange);
}

TEST_F(InotifyWatchQueueTest, BitsWaitingAreJoinedAndAnnouncedOnce) {
  kernel->put("/w/f", 1);
  watch("/w/f", kAll);
  record("/w/f", IN_MODIFY);
  record("/w/f", IN_ATTRIB);
  record("/w/f", IN_MODIFY);
  EXPECT_EQ(takeReady(), std::vector<std::string>{"/w/f"});
  EXPECT_EQ(engine->take("/w/f"), kWrite | kAttributeChange);
  EXPECT_EQ(engine->take("/w/f"), 0u);
  record("/w/f", IN_MODIFY);
  EXPECT_EQ(takeReady(), std::vector<std::string>{"/w/f"});
}

TEST_F(InotifyWatchQueueTest, OverflowLooksAtEveryPathAgain) {
  kernel->put("/w/d", 1, true);
  kernel->put("/w/same", 2, false, 10);
  kernel->put("/w/gone", 3, false, 10);
  kernel->put("/w/grown", 4, false, 10);
  for (const char* path : {"/w/d", "/w/same", "/w/gone", "/w/grown"}) watch(path, kAll);
  kernel->erase("/w/gone");
  kernel->put("/w/grown", 4, false, 20);
  engine->translate({{-1, IN_Q_OVERFLOW, 0, ""}});
  EXPECT_EQ(takeReady(), (std::vector<std::string>{"/w/d", "/w/gone", "/w/grown"}));
  EXPECT_EQ(engine->take("/w/d"), kWrite);
  EXPECT_EQ(engine->take("/w/gone"), kDelete);
  EXPECT_EQ(engine->take("/w/grown"), kWrite | kSizeIncrease);
}

TEST_F(InotifyWatchQueueTest, PathsOfOneItemShareItsWatchUntilTheLastGoes) {
  kernel->put("/w/a", 7);
  kernel->put("/w/hardlink", 7, false, 0, 2);
  const int first = watch("/w/a", kWrite).wd;
  ASSERT_EQ(watch("/w/hardlink", kAttributeChange).wd, first);
  const int wd = kernel->wdOf("/w/a");
  EXPECT_EQ(kernel->masks[wd], uint32_t{IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF});  // the union
  EXPECT_EQ(engine->watchCount(), 1u);

  engine->translate({{wd, IN_MODIFY, 0, ""}, {wd, IN_ATTRIB, 0, ""}});
  EXPECT_EQ(engine->take("/w/a"), kWrite);
  EXPECT_EQ(engine->take("/w/hardlink"), kAttributeChange);

  // A path that is neither the first nor the last of its watch goes: the others still hear.
  kernel->put("/w/third", 7, false, 0, 2);
  ASSERT_EQ(watch("/w/third", kWrite).wd, first);
  engine->remove("/w/hardlink");
  engine->translate({{wd, IN_MODIFY, 0, ""}});
  EXPECT_EQ(engine->take("/w/a"), kWrite);
  EXPECT_EQ(engine->take("/w/third"), kWrite);
  EXPECT_EQ(engine->take("/w/hardlink"), 0u);

  engine->remove("/w/a");
  EXPECT_EQ(kernel->log.back(), "add /w/third");  // the watch stays
  engine->translate({{wd, IN_MODIFY, 0, ""}});
  EXPECT_EQ(engine->take("/w/third"), kWrite);

  engine->remove("/w/third");
  EXPECT_EQ(kernel->log.back(), "remove " + std::to_string(wd));
  EXPECT_EQ(engine->watchCount(), 0u);
}

TEST_F(InotifyWatchQueueTest, RecordsOfAWatchGivenBackAreStaleUntilItsConfirmation) {
  kernel->put("/w/a", 1);
  watch("/w/a", kAll);
  const int wd = kernel->wdOf("/w/a");
  engine->remove("/w/a");
  watch("/w/a", kAll);  // the fake hands out a new wd, as the kernel does
  engine->translate({{wd, IN_MODIFY, 0, ""}, {wd, IN_IGNORED, 0, ""}});
  EXPECT_TRUE(takeReady().empty());
  EXPECT_EQ(engine->watchCount(), 1u);
}

TEST_F(InotifyWatchQueueTest, AWatchTheKernelDroppedIsNotGivenBack) {
  kernel->put("/w/a", 1);
  kernel->put("/w/hardlink", 1, false, 0, 2);
  watch("/w/a", kAll);
  watch("/w/hardlink", kAll);
  const int wd = kernel->wdOf("/w/a");
  engine->translate({{wd, IN_DELETE_SELF, 0, ""}, {wd, IN_IGNORED, 0, ""}});
  EXPECT_EQ(engine->take("/w/a"), kDelete);
  EXPECT_EQ(engine->take("/w/hardlink"), kDelete);
  EXPECT_EQ(engine->watchCount(), 0u);
  engine->remove("/w/hardlink");
  engine->remove("/w/a");
  EXPECT_EQ(kernel->log, (std::vector<std::string>{"add /w/a", "add /w/hardlink"}));
}

TEST_F(InotifyWatchQueueTest, SubscriptionOnlyWidensAndOnlyWhenItMust) {
  kernel->put("/w/f", 1);
  watch("/w/f", kRename | kDelete);
  watch("/w/f", kDelete);
  EXPECT_EQ(kernel->log.size(), 1u);
  watch("/w/f", kWrite);
  ASSERT_EQ(kernel->log.size(), 2u);
  EXPECT_EQ(kernel->masks[kernel->wdOf("/w/f")],
            uint32_t{IN_MOVE_SELF | IN_DELETE_SELF | IN_ATTRIB | IN_MODIFY});
  record("/w/f", IN_MODIFY);
  EXPECT_EQ(engine->take("/w/f"), kWrite);
}

TEST_F(InotifyWatchQueueTest, AddFailsWithoutWatchingAndTheWatchLimitIsNamed) {
  std::vector<std::string> logged;
  SystemLog::setSink([&](const std::string& m) { logged.push_back(m); });
  EXPECT_EQ(watch("/w/missing", kAll).error, ENOENT);
  EXPECT_TRUE(kernel->log.empty());
  kernel->put("/w/f", 1);
  kernel->failWith = ENOSPC;
  EXPECT_EQ(watch("/w/f", kAll).error, ENOSPC);
  SystemLog::setSink(nullptr);
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_NE(logged[0].find("fs.inotify.max_user_watches"), std::string::npos);
  EXPECT_EQ(engine->watchCount(), 0u);
}

TEST_F(InotifyWatchQueueTest, TrashOfTheItemsFileSystem) {
  kernel->put("/home/u/.local/share/Trash/files", 50, true, 0, 2, 1);
  kernel->put("/", 60, true, 0, 2, 1);
  kernel->put("/mnt", 61, true, 0, 2, 1);
  kernel->put("/mnt/disk", 70, true, 0, 2, 2);
  kernel->put("/mnt/disk/apps", 71, true, 0, 2, 2);
  const std::string userTrash = "/home/u/.local/share/Trash/files";
  EXPECT_EQ(engine->trashFolderFor(1, "/home/u/a", userTrash), userTrash);
  EXPECT_EQ(engine->trashFolderFor(2, "/mnt/disk/apps/a", userTrash),
            "/mnt/disk/.Trash-1000/files");
  kernel->items["/mnt/disk/.Trash"] = WatchedItemStatus{2, 72, 0, 2, true, false, true};
  EXPECT_EQ(engine->trashFolderFor(2, "/mnt/disk/apps/a", userTrash),
            "/mnt/disk/.Trash/1000/files");
  kernel->items["/mnt/disk/.Trash"] = WatchedItemStatus{2, 72, 0, 1, false, true, true};
  EXPECT_EQ(engine->trashFolderFor(2, "/mnt/disk/apps/a", userTrash),
            "/mnt/disk/.Trash-1000/files");
}

TEST_F(InotifyWatchQueueTest, LocateFindsTheItemByIdentityNotByName) {
  kernel->put("/w", 1, true);
  kernel->put("/w/same-name", 2);
  kernel->put("/w/sub", 3, true);
  kernel->put("/w/sub/other", 4);
  EXPECT_EQ(engine->locate(1, 2, "/w", false), "/w/same-name");
  EXPECT_EQ(engine->locate(1, 4, "/w", false), std::nullopt);
  EXPECT_EQ(engine->locate(1, 4, "/w", true), "/w/sub/other");
  EXPECT_EQ(engine->locate(2, 4, "/w", true), std::nullopt);
}

}  // namespace inotify_watch_queue_test
}  // namespace vexa
