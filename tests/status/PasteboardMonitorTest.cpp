#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "status/PasteboardText.h"
#include "vexa/status/Pasteboard.h"
#include "vexa/status/PasteboardMonitor.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace pasteboard_monitor_test {

using namespace std::chrono_literals;

// A clipboard whose counter the test sets; counts how often it was looked at.
class FakePasteboard : public Pasteboard {
 public:
  int64_t changeCount() override {
    ++looks;
    return count;
  }
  std::optional<std::string> text() override { return contents; }

  std::atomic<int64_t> count{0};
  std::atomic<int> looks{0};
  std::optional<std::string> contents;
};

class Recorder : public PasteboardMonitorDelegate {
 public:
  void pasteboardChange(Pasteboard& pasteboard) override {
    texts.push_back(pasteboard.text().value_or("<none>"));
  }
  std::vector<std::string> texts;
};

class PasteboardMonitorTest : public testing::Test {
 protected:
  PasteboardMonitorTest()
      : pasteboard(std::make_shared<FakePasteboard>()), monitor([this] {
          ++taken;
          return pasteboard;
        }) {
    monitor.setDelegate(recorder);
  }

  // Counter values the clipboard shows at successive looks, and whether each look reported.
  void expectLooks(const std::vector<std::pair<int64_t, bool>>& looks) {
    size_t reports = recorder->texts.size();
    for (const auto& [count, reported] : looks) {
      pasteboard->count = count;
      monitor.checkPasteboard();
      if (reported) ++reports;
      EXPECT_EQ(recorder->texts.size(), reports) << "at counter " << count;
      EXPECT_EQ(monitor.lastChangeCount(), count);
    }
  }

  // Turns this thread's loop until the clipboard was looked at `more` more times.
  bool waitForLooks(int more, std::chrono::milliseconds timeout = 3s) {
    const int target = pasteboard->looks + more;
    return RunLoop::current().runUntil([&] { return pasteboard->looks >= target; }, timeout);
  }

  std::shared_ptr<FakePasteboard> pasteboard;
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  int taken = 0;
  PasteboardMonitor monitor;
};

TEST_F(PasteboardMonitorTest, FirstLookReportsAnyCounterAboveZero) {
  monitor.start();
  expectLooks({{0, false}, {0, false}});

  PasteboardMonitor fresh([this] { return pasteboard; });
  auto heard = std::make_shared<Recorder>();
  fresh.setDelegate(heard);
  fresh.start();
  pasteboard->count = 7;
  fresh.checkPasteboard();
  EXPECT_EQ(heard->texts.size(), 1u);
}

// A replaced clipboard server starts counting again: the drop is only remembered, and the
// next growth is reported even though it stays below the old counter.
TEST_F(PasteboardMonitorTest, CounterThatWentDownIsStoredThenItsGrowthReported) {
  monitor.start();
  expectLooks({{5, true}, {5, false}, {0, false}, {0, false}, {1, true}, {3, true}, {2, false}});
}

TEST_F(PasteboardMonitorTest, SeveralChangesInOnePeriodGiveOneReport) {
  pasteboard->contents = "latest";
  monitor.start();
  ASSERT_TRUE(waitForLooks(1));
  pasteboard->count = 1;
  pasteboard->count = 2;
  pasteboard->count = 3;
  ASSERT_TRUE(waitForLooks(2));
  EXPECT_EQ(recorder->texts, std::vector<std::string>{"latest"});
  EXPECT_EQ(monitor.lastChangeCount(), 3);
}

TEST_F(PasteboardMonitorTest, LooksEveryThreeQuartersOfASecondOnTheStartingLoop) {
  monitor.start();
  monitor.start();  // a second start while running adds no timer
  EXPECT_EQ(taken, 1);
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(waitForLooks(2));
  const auto elapsed = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(elapsed, 1490ms);
  EXPECT_LT(elapsed, 2500ms);
}

TEST_F(PasteboardMonitorTest, StopAndStartKeepTheCounter) {
  monitor.start();
  expectLooks({{4, true}});
  monitor.stop();
  EXPECT_FALSE(monitor.isRunning());
  // Stopped, the clipboard is let go: a look does nothing.
  pasteboard->count = 9;
  monitor.checkPasteboard();
  EXPECT_EQ(pasteboard->looks, 1);
  EXPECT_EQ(monitor.lastChangeCount(), 4);
  pasteboard->count = 4;

  monitor.start();
  EXPECT_TRUE(monitor.isRunning());
  EXPECT_EQ(taken, 2);
  expectLooks({{4, false}, {5, true}});
}

TEST_F(PasteboardMonitorTest, StoppedMonitorLooksNoMore) {
  monitor.start();
  ASSERT_TRUE(waitForLooks(1));
  monitor.stop();
  const int looks = pasteboard->looks;
  // A second monitor's looks show the time passing; the stopped one's timer stays quiet.
  auto clock = std::make_shared<FakePasteboard>();
  PasteboardMonitor ticking([clock] { return clock; });
  ticking.start();
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return clock->looks >= 2; }, 3s));
  EXPECT_EQ(pasteboard->looks, looks);
}

// The monitor does not keep its delegate alive, and calls none that has gone (under ASan a
// call would be a use after free).
TEST_F(PasteboardMonitorTest, DelegateThatIsGoneHearsNothing) {
  monitor.start();
  std::weak_ptr<Recorder> watched = recorder;
  recorder.reset();
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(monitor.delegate(), nullptr);
  pasteboard->count = 2;
  monitor.checkPasteboard();
  EXPECT_EQ(monitor.lastChangeCount(), 2);

  // A new delegate hears the next change.
  auto next = std::make_shared<Recorder>();
  monitor.setDelegate(next);
  pasteboard->count = 3;
  monitor.checkPasteboard();
  EXPECT_EQ(next->texts.size(), 1u);
}

TEST(PasteboardMonitorSharedTest, IsOneInstance) {
  EXPECT_EQ(&PasteboardMonitor::shared(), &PasteboardMonitor::shared());
}

TEST(PasteboardTextTest, RepairsWhatIsNotUtf8) {
  const std::string bad = "\xef\xbf\xbd";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"plain", "plain"},
      {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
      {"caf\xe9", "caf" + bad},                     // Latin-1 labelled as UTF-8
      {"\x80x", bad + "x"},                         // stray continuation byte
      {"\xe2\x82", bad + bad},                      // sequence cut short at the end
      {"\xc0\xaf", bad + bad},                      // overlong '/'
      {"\xed\xa0\x80", bad + bad + bad},            // surrogate
      {"\xf4\x90\x80\x80", bad + bad + bad + bad},  // past U+10FFFF
      {std::string("a\0b", 3), "ab"},
      {"", ""},
  };
  for (const auto& [in, out] : cases) {
    EXPECT_EQ(PasteboardText::repaired(in), out) << testing::PrintToString(in);
  }
}

}  // namespace pasteboard_monitor_test
}  // namespace vexa
