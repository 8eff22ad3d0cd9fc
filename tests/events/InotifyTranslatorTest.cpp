#include "events/linux/InotifyTranslator.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <cstring>
#include <map>

#include "events/EventStream.h"

namespace vexa {
namespace inotify_translator_test {

using Clock = InotifyTranslator::Clock;
using Log = std::vector<std::string>;
using namespace std::chrono_literals;

std::string describe(uint32_t flags) {
  std::string text;
  for (auto [bit, word] : {std::pair{fsevent::kMustScanSubDirs, "must-scan"},
                           {fsevent::kRootChanged, "root-changed"},
                           {fsevent::kItemCreated, "created"},
                           {fsevent::kItemRemoved, "removed"},
                           {fsevent::kItemRenamed, "renamed"},
                           {fsevent::kItemModified, "modified"},
                           {fsevent::kItemIsFile, "file"},
                           {fsevent::kItemIsDir, "dir"}}) {
    if (flags & bit) text += (text.empty() ? "" : " ") + std::string(word);
  }
  return text;
}

// Plays the kernel and the reader: numbers events as the stream does, and gives each folder
// it is asked to watch the wd the test assigned it.
class RecordingEffects : public InotifyTranslator::Effects {
 public:
  explicit RecordingEffects(InotifyWatchTable& table) : table_(table) {}
  void emit(const std::string& path, uint32_t flags) override {
    log.push_back("#" + std::to_string(++lastId) + " " + describe(flags) + " " + path);
  }
  void emitRename(const std::string& from, const std::string& to, uint32_t flags) override {
    emit(from, flags);
    emit(to, flags);
    log.back() += " (paired)";
  }
  void watchTree(const std::string& path, bool reportContents) override {
    log.push_back((reportContents ? "scan " : "watch ") + path);
    auto wd = kernelWds.find(path);
    if (wd != kernelWds.end()) table_.add(wd->second, path);
  }
  bool releaseWatch(int wd) override {
    log.push_back("release " + std::to_string(wd));
    return true;
  }
  void overflowed() override { log.push_back("overflowed"); }

  Log log;
  uint64_t lastId = 0;
  std::map<std::string, int> kernelWds;

 private:
  InotifyWatchTable& table_;
};

// One watched tree: /r (wd 1) with /r/sub (2) and /r/sub/deep (3).
class InotifyTranslatorTest : public ::testing::Test {
 protected:
  InotifyTranslatorTest() {
    translator.setRoots({"/r"});
    table.add(1, "/r");
    table.add(2, "/r/sub");
    table.add(3, "/r/sub/deep");
  }
  // One read of the kernel's queue at `at` after the start.
  void read(const std::vector<InotifyRecord>& records, Clock::duration at = 0ms) {
    for (const auto& record : records) translator.translate(record, start + at);
  }
  Log take() { return std::exchange(effects.log, {}); }

  InotifyWatchTable table;
  RecordingEffects effects{table};
  InotifyTranslator translator{table, effects};
  const Clock::time_point start = Clock::now();
};

struct SingleRecord {
  const char* name;
  InotifyRecord record;
  Log expected;
};

class InotifyTranslatorRecordTest : public InotifyTranslatorTest,
                                    public ::testing::WithParamInterface<SingleRecord> {};

TEST_P(InotifyTranslatorRecordTest, TranslatesOneRecord) {
  read({GetParam().record});
  EXPECT_EQ(take(), GetParam().expected);
  EXPECT_FALSE(translator.deadline());
}

INSTANTIATE_TEST_SUITE_P(
    Records, InotifyTranslatorRecordTest,
    ::testing::Values(
        SingleRecord{"FileCreated", {2, IN_CREATE, 0, "f"}, {"#1 created file /r/sub/f"}},
        // A new folder is watched and scanned: what was made in it before its watch is told.
        SingleRecord{"FolderCreated",
                     {1, IN_CREATE | IN_ISDIR, 0, "new"},
                     {"#1 created dir /r/new", "scan /r/new"}},
        SingleRecord{"FileRemoved", {3, IN_DELETE, 0, "f"}, {"#1 removed file /r/sub/deep/f"}},
        SingleRecord{
            "FolderRemoved", {2, IN_DELETE | IN_ISDIR, 0, "deep"}, {"#1 removed dir /r/sub/deep"}},
        SingleRecord{"FileWritten", {1, IN_MODIFY, 0, "f"}, {"#1 modified file /r/f"}},
        // A root that is a file is watched itself: its writes have no name.
        SingleRecord{"WatchedFileWritten", {1, IN_MODIFY, 0, ""}, {"#1 modified file /r"}},
        SingleRecord{"RootDeleted", {1, IN_DELETE_SELF, 0, ""}, {"#1 root-changed /r"}},
        SingleRecord{"RootMoved", {1, IN_MOVE_SELF, 0, ""}, {"#1 root-changed /r"}},
        SingleRecord{"InnerFolderDeletedItself", {3, IN_DELETE_SELF, 0, ""}, {}},
        SingleRecord{"UnknownWatch", {42, IN_CREATE, 0, "f"}, {}},
        SingleRecord{"FolderMovedIn",
                     {2, IN_MOVED_TO | IN_ISDIR, 77, "in"},
                     {"#1 renamed dir /r/sub/in", "watch /r/sub/in"}},
        SingleRecord{"FileMovedIn", {2, IN_MOVED_TO, 77, "in"}, {"#1 renamed file /r/sub/in"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(InotifyTranslatorTest, BothHalvesOfAMoveInOneReadAreTwoEventsInARow) {
  read({{2, IN_MOVED_FROM, 9, "a"}, {3, IN_MOVED_TO, 9, "b"}, {1, IN_CREATE, 0, "c"}});
  EXPECT_EQ(take(), (Log{"#1 renamed file /r/sub/a", "#2 renamed file /r/sub/deep/b (paired)",
                         "#3 created file /r/c"}));
  EXPECT_FALSE(translator.deadline());
}

TEST_F(InotifyTranslatorTest, AMoveSplitAcrossTwoReadsIsPairedBeforeItsDeadline) {
  read({{1, IN_MOVED_FROM, 9, "a"}}, 0ms);
  ASSERT_EQ(translator.deadline(), start + InotifyTranslator::kMovePairing);
  translator.expire(start + InotifyTranslator::kMovePairing - 1ms);
  EXPECT_TRUE(take().empty());
  read({{1, IN_MOVED_TO, 9, "b"}}, 9ms);
  EXPECT_EQ(take(), (Log{"#1 renamed file /r/a", "#2 renamed file /r/b (paired)"}));
  EXPECT_FALSE(translator.deadline());
}

TEST_F(InotifyTranslatorTest, AMoveOutWhoseCookieNeverPairsStopsWatchingItsSubtree) {
  read({{1, IN_MOVED_FROM | IN_ISDIR, 9, "sub"}});
  translator.expire(start + InotifyTranslator::kMovePairing);
  EXPECT_EQ(take(), (Log{"#1 renamed dir /r/sub", "release 2", "release 3"}));
  EXPECT_FALSE(translator.deadline());
  // Records the old watches had queued before they were given back, and their confirmations.
  read({{3, IN_CREATE, 0, "late"}, {2, IN_IGNORED, 0, ""}, {3, IN_IGNORED, 0, ""}});
  EXPECT_TRUE(take().empty());
  EXPECT_EQ(table.size(), 1u);
}

TEST_F(InotifyTranslatorTest, AHeldHalfIsSettledByAnyOtherRecordFirst) {
  read({{2, IN_MOVED_FROM, 9, "a"},
        {1, IN_MOVED_TO, 10, "b"},
        {1, IN_MOVED_FROM, 11, "c"},
        {1, IN_MODIFY, 0, "d"}});
  EXPECT_EQ(take(), (Log{"#1 renamed file /r/sub/a", "#2 renamed file /r/b", "#3 renamed file /r/c",
                         "#4 modified file /r/d"}));
  // A record of no watch settles nothing.
  read({{1, IN_MOVED_FROM, 12, "e"}, {42, IN_CREATE, 0, "x"}, {2, IN_MOVED_TO, 12, "e"}});
  EXPECT_EQ(take(), (Log{"#5 renamed file /r/e", "#6 renamed file /r/sub/e (paired)"}));
}

TEST_F(InotifyTranslatorTest, ARenamedFolderKeepsItsWatchesUnderItsNewName) {
  read({{1, IN_MOVED_FROM | IN_ISDIR, 9, "sub"}, {1, IN_MOVED_TO | IN_ISDIR, 9, "moved"}});
  EXPECT_EQ(take(), (Log{"#1 renamed dir /r/sub", "#2 renamed dir /r/moved (paired)"}));
  read({{3, IN_CREATE, 0, "f"}, {2, IN_DELETE, 0, "g"}});
  EXPECT_EQ(take(), (Log{"#3 created file /r/moved/deep/f", "#4 removed file /r/moved/g"}));
  EXPECT_FALSE(table.watchOf("/r/sub"));
}

TEST_F(InotifyTranslatorTest, AFolderTheKernelDroppedHandsItsIdOnCleanly) {
  read({{2, IN_DELETE | IN_ISDIR, 0, "deep"}, {3, IN_DELETE_SELF, 0, ""}, {3, IN_IGNORED, 0, ""}});
  EXPECT_EQ(take(), Log{"#1 removed dir /r/sub/deep"});
  EXPECT_FALSE(table.pathOf(3));
  // The kernel reuses wd 3 for the next folder watched.
  effects.kernelWds["/r/new"] = 3;
  read({{1, IN_CREATE | IN_ISDIR, 0, "new"}});
  read({{3, IN_CREATE, 0, "f"}});
  EXPECT_EQ(take(), (Log{"#2 created dir /r/new", "scan /r/new", "#3 created file /r/new/f"}));
}

TEST_F(InotifyTranslatorTest, AnIdReusedBeforeItsOldWatchWasConfirmedGoneWaitsForTheConfirmation) {
  read({{1, IN_MOVED_FROM | IN_ISDIR, 9, "sub"}});
  effects.kernelWds["/r/in"] = 2;  // given back, then handed to the folder moved in
  read({{1, IN_MOVED_TO | IN_ISDIR, 10, "in"}}, 1ms);
  EXPECT_EQ(take(), (Log{"#1 renamed dir /r/sub", "release 2", "release 3", "#2 renamed dir /r/in",
                         "watch /r/in"}));
  // Queued before the old watch was given back: its records, then its IN_IGNORED.
  read({{2, IN_CREATE, 0, "old"}, {2, IN_IGNORED, 0, ""}, {2, IN_CREATE, 0, "f"}});
  EXPECT_EQ(take(), Log{"#3 created file /r/in/f"});
}

TEST_F(InotifyTranslatorTest, AnOverflowSettlesTheHeldHalfAndCrawlsEveryTreeAgain) {
  translator.setRoots({"/r", "/other"});
  effects.kernelWds = {{"/r", 1}, {"/other", 8}};
  read({{1, IN_MOVED_FROM, 9, "a"}, {-1, IN_Q_OVERFLOW, 0, ""}});
  EXPECT_EQ(take(), (Log{"#1 renamed file /r/a", "watch /r", "#2 must-scan /r", "watch /other",
                         "#3 must-scan /other", "overflowed"}));
  EXPECT_FALSE(translator.deadline());
  // The table holds what the crawl found (the fake kernel: the roots only).
  EXPECT_EQ(table.size(), 2u);
  read({{2, IN_CREATE, 0, "gone"}, {8, IN_CREATE, 0, "f"}});
  EXPECT_EQ(take(), Log{"#4 created file /other/f"});
}

TEST_F(InotifyTranslatorTest, WhatAScanReportedIsNotReportedAgainUntilHandedOver) {
  translator.reportedByScan("/r/sub/f");
  read({{2, IN_CREATE, 0, "f"}, {2, IN_CREATE, 0, "f"}});
  EXPECT_EQ(take(), Log{"#1 created file /r/sub/f"});
  translator.reportedByScan("/r/g");
  translator.handedOver();
  read({{1, IN_CREATE, 0, "g"}});
  EXPECT_EQ(take(), Log{"#2 created file /r/g"});
}

TEST_F(InotifyTranslatorTest, NamesInTheRootFolderHaveOneSlash) {
  translator.setRoots({"/"});
  table.add(4, "/");
  read({{4, IN_CREATE, 0, "x"}});
  EXPECT_EQ(take(), Log{"#1 created file /x"});
}

// Lays records out as the kernel does: a header, then the name padded with NULs.
std::string kernelBytes(const std::vector<InotifyRecord>& records, size_t padding) {
  std::string bytes;
  for (const auto& record : records) {
    inotify_event header{};
    header.wd = record.wd;
    header.mask = record.mask;
    header.cookie = record.cookie;
    header.len = static_cast<uint32_t>(record.name.empty() ? 0 : record.name.size() + padding);
    bytes.append(reinterpret_cast<const char*>(&header), sizeof header);
    bytes += record.name;
    if (header.len > 0) bytes.append(padding, '\0');
  }
  return bytes;
}

TEST(InotifyRecordTest, ParsesWhatOneReadAnswers) {
  const std::vector<InotifyRecord> records{{1, IN_CREATE, 0, "a file"},
                                           {-1, IN_Q_OVERFLOW, 0, ""},
                                           {7, IN_MOVED_TO | IN_ISDIR, 99, "odd \x01\xff"},
                                           {2, IN_IGNORED, 0, ""}};
  std::string bytes = kernelBytes(records, 5);
  EXPECT_EQ(InotifyRecord::parse(bytes.data(), bytes.size()), records);
  // A record cut short ends the list.
  bytes += kernelBytes({{3, IN_CREATE, 0, "cut"}}, 1);
  EXPECT_EQ(InotifyRecord::parse(bytes.data(), bytes.size() - 2), records);
  EXPECT_EQ(InotifyRecord::parse(bytes.data(), 5), std::vector<InotifyRecord>{});
}

}  // namespace inotify_translator_test
}  // namespace vexa
