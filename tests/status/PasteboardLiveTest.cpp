#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/ChildProcess.h"
#include "vexa/status/Pasteboard.h"
#include "vexa/status/PasteboardMonitor.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace pasteboard_live_test {

using namespace std::chrono_literals;
using test::ChildProcess;

constexpr const char* kXvfb = "/usr/bin/Xvfb";
constexpr const char* kXclip = "/usr/bin/xclip";

// The session's clipboard, counting the monitor's looks so tests can wait for them.
class WatchedPasteboard : public Pasteboard {
 public:
  explicit WatchedPasteboard(std::shared_ptr<Pasteboard> inner) : inner_(std::move(inner)) {}
  int64_t changeCount() override {
    const int64_t count = inner_->changeCount();
    ++looks;
    return count;
  }
  std::optional<std::string> text() override { return inner_->text(); }
  std::atomic<int> looks{0};

 private:
  std::shared_ptr<Pasteboard> inner_;
};

class Recorder : public PasteboardMonitorDelegate {
 public:
  void pasteboardChange(Pasteboard& pasteboard) override {
    times.push_back(std::chrono::steady_clock::now());
    texts.push_back(pasteboard.text().value_or("<none>"));
    fetches.push_back(std::chrono::steady_clock::now() - times.back());
  }
  std::vector<std::string> texts;
  std::vector<std::chrono::steady_clock::time_point> times;
  std::vector<std::chrono::steady_clock::duration> fetches;
};

// An X server of its own on a free display number.
class XServer {
 public:
  XServer() { start({kXvfb, "-displayfd", "1", "-nolisten", "tcp"}); }
  const std::string& display() const { return display_; }
  bool ready() const { return server_ && !display_.empty(); }
  void kill() {
    server_->signal(SIGTERM);
    server_->waitExit();
  }
  // Again on the same display number.
  void restart() { start({kXvfb, display_, "-displayfd", "1", "-nolisten", "tcp"}); }

 private:
  void start(std::vector<std::string> argv) {
    server_ = std::make_unique<ChildProcess>(std::move(argv));
    // The server writes its display number once it accepts clients.
    const auto number = server_->readLine(20s);
    display_ = number && !number->empty() ? ":" + *number : "";
  }
  std::unique_ptr<ChildProcess> server_;
  std::string display_;
};

class PasteboardLiveTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::access(kXvfb, X_OK) != 0 || ::access(kXclip, X_OK) != 0) {
      GTEST_SKIP() << "needs Xvfb and xclip";
    }
    server_ = std::make_unique<XServer>();
    ASSERT_TRUE(server_->ready());
    ::setenv("DISPLAY", server_->display().c_str(), 1);
    pasteboard_ = std::make_shared<WatchedPasteboard>(Pasteboard::general());
    monitor_ = std::make_unique<PasteboardMonitor>([this] { return pasteboard_; });
    monitor_->setDelegate(recorder_);
    monitor_->start();
  }

  // Puts `text` on the clipboard; xclip stays behind to serve it.
  static void copy(const std::string& text) {
    ChildProcess xclip({kXclip, "-selection", "clipboard", "-i"});
    xclip.write(text);
    xclip.closeInput();
    EXPECT_EQ(xclip.waitExit(), 0);
  }
  bool waitForLooks(int more) {
    const int target = pasteboard_->looks + more;
    return loop_.runUntil([&] { return pasteboard_->looks >= target; }, 5s);
  }
  bool waitForReports(size_t count) {
    return loop_.runUntil([&] { return recorder_->texts.size() >= count; }, 5s);
  }

  RunLoop loop_ = RunLoop::current();
  std::unique_ptr<XServer> server_;
  std::shared_ptr<WatchedPasteboard> pasteboard_;
  std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
  std::unique_ptr<PasteboardMonitor> monitor_;
};

TEST_F(PasteboardLiveTest, OneCopyIsReportedWithinASecondWithItsText) {
  const auto copied = std::chrono::steady_clock::now();
  copy("first copy");
  ASSERT_TRUE(waitForReports(1));
  EXPECT_LT(recorder_->times[0] - copied, 1s);
  EXPECT_EQ(recorder_->texts[0], "first copy");
  ASSERT_TRUE(waitForLooks(2));
  EXPECT_EQ(recorder_->texts.size(), 1u);
  EXPECT_EQ(monitor_->lastChangeCount(), 1);
}

// Each copy changes the clipboard's owner once; three between two looks are one report.
TEST_F(PasteboardLiveTest, ThreeQuickCopiesGiveOneReport) {
  copy("one");
  ASSERT_TRUE(waitForReports(1));
  // Right after a look: the next one is 0.75 s away.
  const auto begin = std::chrono::steady_clock::now();
  copy("two");
  copy("three");
  copy("four");
  const auto took = std::chrono::steady_clock::now() - begin;
  ASSERT_TRUE(waitForLooks(2));
  if (took < 300ms) {
    EXPECT_EQ(recorder_->texts, (std::vector<std::string>{"one", "four"}));
  }
  EXPECT_EQ(monitor_->lastChangeCount(), 4);
  EXPECT_EQ(recorder_->texts.back(), "four");
}

// What owners send is handed on as UTF-8 text: bytes that are not UTF-8 are replaced. A large
// text comes whole or not at all (the owner may take longer than the wait), and never holds up
// the looks for long.
TEST_F(PasteboardLiveTest, OwnersTextIsUtf8AndWholeOrNothing) {
  copy("caf\xe9");
  ASSERT_TRUE(waitForReports(1));
  EXPECT_EQ(recorder_->texts[0], "caf\xef\xbf\xbd");

  const std::string large(4 << 20, 'x');
  copy(large);
  ASSERT_TRUE(waitForReports(2));
  EXPECT_TRUE(recorder_->texts[1] == "<none>" || recorder_->texts[1] == large)
      << recorder_->texts[1].size() << " bytes";
  EXPECT_LT(recorder_->fetches[1], 1s);
  copy("small again");
  // The large text's owner may still be sending pieces; none of them is taken for this answer.
  ASSERT_TRUE(waitForReports(3));
  EXPECT_EQ(recorder_->texts[2], "small again") << recorder_->texts[2].size() << " bytes";
}

// A new server starts with a new clipboard: its counter starts again without a report, and
// its own changes are reported.
TEST_F(PasteboardLiveTest, RestartedServerIsFollowedAgain) {
  copy("before");
  ASSERT_TRUE(waitForReports(1));
  server_->kill();
  ASSERT_TRUE(waitForLooks(2));
  EXPECT_EQ(monitor_->lastChangeCount(), 0);
  server_->restart();
  ASSERT_TRUE(server_->ready());
  // The first look after the restart connects again.
  ASSERT_TRUE(waitForLooks(2));
  EXPECT_EQ(recorder_->texts.size(), 1u);
  // The new server's clipboard has no owner yet.
  EXPECT_EQ(pasteboard_->text(), std::nullopt);

  copy("after");
  ASSERT_TRUE(waitForReports(2));
  EXPECT_EQ(recorder_->texts[1], "after");
}

// The status program prints one line per change. It says nothing when it is ready, so the test
// copies until it hears.
TEST_F(PasteboardLiveTest, StatusProgramPrintsClipboardChanges) {
  ChildProcess tool({VEXA_STATUS_TOOL, "--json", "--only", "clipboard"});
  std::optional<std::string> line;
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (!line && std::chrono::steady_clock::now() < deadline) {
    copy("for the program");
    line = tool.readLine(1500ms);
  }
  ASSERT_TRUE(line);
  const auto report = nlohmann::json::parse(*line, nullptr, false);
  ASSERT_TRUE(report.is_object()) << *line;
  EXPECT_EQ(report["source"], "clipboard");
  EXPECT_EQ(report["call"], "pasteboardChange");
  EXPECT_GE(report["data"]["changeCount"].get<int64_t>(), 1);
  EXPECT_TRUE(report["time"].is_number());
}

// Without an X display there is no clipboard to follow: said once in the log, never reported.
class PasteboardWithoutDisplayTest : public testing::TestWithParam<const char*> {};

TEST_P(PasteboardWithoutDisplayTest, NeverReportsAndLogsOnce) {
  std::mutex mutex;
  std::vector<std::string> logged;
  SystemLog::setSink([&](const std::string& message) {
    std::lock_guard guard(mutex);
    logged.push_back(message);
  });
  ::unsetenv("DISPLAY");
  if (GetParam()) {
    ::setenv("WAYLAND_DISPLAY", GetParam(), 1);
  } else {
    ::unsetenv("WAYLAND_DISPLAY");
  }
  auto pasteboard = std::make_shared<WatchedPasteboard>(Pasteboard::general());
  PasteboardMonitor monitor([&] { return pasteboard; });
  auto recorder = std::make_shared<Recorder>();
  monitor.setDelegate(recorder);
  monitor.start();
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return pasteboard->looks >= 3; }, 5s));
  monitor.stop();
  monitor.start();
  EXPECT_EQ(Pasteboard::general()->changeCount(), 0);
  EXPECT_TRUE(recorder->texts.empty());
  EXPECT_EQ(Pasteboard::general()->text(), std::nullopt);
  SystemLog::setSink({});
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_NE(logged[0].find("unsupported"), std::string::npos) << logged[0];
  EXPECT_EQ(logged[0].find("Wayland") != std::string::npos, GetParam() != nullptr) << logged[0];
}

INSTANTIATE_TEST_SUITE_P(Sessions, PasteboardWithoutDisplayTest,
                         testing::Values(nullptr, "wayland-0"));

}  // namespace pasteboard_live_test
}  // namespace vexa
