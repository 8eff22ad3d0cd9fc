// The banner view on a notification server of our own (fake-notification-server) on a private
// bus: what each bubble carries, and how answers and disappearances reach the centre.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "banners/RecordingCenterDelegate.h"
#include "banners/linux/NotificationServer.h"
#include "support/ChildProcess.h"
#include "support/PrivateBus.h"
#include "vexa/banners/BannerViewFactory.h"
#include "vexa/banners/UserNotification.h"
#include "vexa/banners/UserNotificationCenter.h"
#include "vexa/util/Image.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace notification_server_test {

using Banner = std::shared_ptr<UserNotification>;
using namespace std::chrono_literals;

class NotificationServerTest : public ::testing::Test {
 protected:
  void start(const std::string& capabilities, bool neverAnswer = false) {
    ASSERT_TRUE(bus.ok());
    std::vector<std::string> argv = {VEXA_FAKE_NOTIFICATION_SERVER, bus.address(), capabilities};
    if (neverAnswer) argv.emplace_back("--never-answer");
    server = std::make_unique<test::ChildProcess>(argv);
    ASSERT_EQ(server->readLine().value_or(""), R"({"ready":true})");
    useViews(makeNotificationServer(bus.address()));
  }
  void useViews(std::shared_ptr<BannerViewFactory> views) {
    center = UserNotificationCenter::create([] { return Date::now(); }, std::move(views));
    center->setDelegate(listener);
  }
  // The server's next line, turning our loop meanwhile (our calls wait for its answers there).
  nlohmann::json nextCall(std::chrono::milliseconds timeout = 10s) {
    std::optional<std::string> line;
    RunLoop::current().runUntil(
        [&] {
          line = server->readLine(10ms);
          return line.has_value();
        },
        timeout);
    return line ? nlohmann::json::parse(*line) : nlohmann::json();
  }
  bool heard(size_t count, std::chrono::milliseconds timeout = 10s) {
    return RunLoop::current().runUntil([&] { return listener->log.size() >= count; }, timeout);
  }
  Banner banner(const std::string& title) {
    auto b = UserNotification::create();
    b->setTitle(title);
    b->setAppIdentity("com.tarnwick.Vexa-Sweeper");
    return b;
  }

  test::PrivateBus bus;
  std::unique_ptr<test::ChildProcess> server;
  std::shared_ptr<test::RecordingCenterDelegate> listener =
      std::make_shared<test::RecordingCenterDelegate>(false);
  std::shared_ptr<UserNotificationCenter> center;
};

TEST_F(NotificationServerTest, ABannerBecomesABubbleAndAClickOnItsBodyIsHeardOnce) {
  start("actions,body,body-markup");
  auto removed = banner("Viewer");
  removed->setSubtitle("<removed>");
  removed->setInformativeText("a & b");
  removed->setHasActionButton(true);
  removed->setActionButtonTitle("OK");
  removed->setOtherButtonTitle("Cancel");
  removed->setNotificationIcon(Image::filled(4096, 2048, 0x336699ff));
  center->deliverNotification(removed);
  EXPECT_TRUE(removed->isAnimating());
  EXPECT_EQ(nextCall()["call"], "GetCapabilities");
  const auto notify = nextCall();
  EXPECT_EQ(notify["summary"], "Viewer");
  EXPECT_EQ(notify["body"], "&lt;removed&gt;\na &amp; b");
  EXPECT_EQ(notify["actions"],
            nlohmann::json({"default", "OK", "action", "OK", "other", "Cancel"}));
  EXPECT_EQ(notify["desktop-entry"], "com.tarnwick.Vexa-Sweeper");
  EXPECT_EQ(notify["image"], nlohmann::json({128, 64, 512, 128 * 64 * 4}));
  EXPECT_EQ(notify["timeout"], 0);
  EXPECT_EQ(notify["replaces"], 0);
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return !removed->isAnimating(); }, 10s));

  // Shown again: the same bubble is updated in place.
  center->presentedNotification(removed);
  EXPECT_EQ(nextCall()["replaces"], 1);

  server->write("invoke 1 default\n");
  EXPECT_EQ(nextCall()["done"], "invoke");
  ASSERT_TRUE(heard(2));
  EXPECT_EQ(listener->log, (std::vector<std::string>{"destroyed Viewer", "activate Viewer 1"}));
  // The server then closes the answered bubble, and tells of foreign ids: nothing more is
  // told. A later banner, delivered after those signals, shows they were read.
  server->write("closed 1 2\n");
  server->write("closed 99 1\n");
  server->write("invoke 98 default\n");
  EXPECT_EQ(nextCall()["done"], "closed");
  EXPECT_EQ(nextCall()["done"], "closed");
  EXPECT_EQ(nextCall()["done"], "invoke");
  auto later = banner("Later");
  center->deliverNotification(later);
  EXPECT_EQ(nextCall()["summary"], "Later");
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return !later->isAnimating(); }, 10s));
  EXPECT_EQ(listener->log.size(), 2u);
}

TEST_F(NotificationServerTest, WithoutActionsOrMarkupTheBubbleIsPlainAndTextIsMadeValid) {
  start("body");
  auto plain = banner("Bad \xff\xfe name");
  plain->setSubtitle("<i>");
  plain->setHasActionButton(true);
  plain->setActionButtonTitle("OK");
  center->deliverNotification(plain);
  EXPECT_EQ(nextCall()["call"], "GetCapabilities");
  const auto notify = nextCall();
  EXPECT_EQ(notify["actions"], nlohmann::json::array());
  EXPECT_EQ(notify["body"], "<i>");
  EXPECT_EQ(notify["summary"], "Bad \xef\xbf\xbd\xef\xbf\xbd name");
}

TEST_F(NotificationServerTest, ABubbleTheServerTakesAwayOrLosesIsToldAsAnswerZero) {
  start("actions");
  // Expired, dismissed, closed by someone else's call, undefined: whatever the reason, a close
  // we did not ask for is told once.
  for (const int reason : {1, 2, 3, 4}) {
    SCOPED_TRACE(reason);
    listener->log.clear();
    const std::string title = "Closed " + std::to_string(reason);
    auto closed = banner(title);
    center->deliverNotification(closed);
    if (reason == 1) {
      EXPECT_EQ(nextCall()["call"], "GetCapabilities");
    }
    EXPECT_EQ(nextCall()["call"], "Notify");
    ASSERT_TRUE(RunLoop::current().runUntil([&] { return !closed->isAnimating(); }, 10s));
    server->write("closed " + std::to_string(reason) + " " + std::to_string(reason) + "\n");
    EXPECT_EQ(nextCall()["done"], "closed");
    ASSERT_TRUE(heard(2));
    EXPECT_EQ(listener->log,
              (std::vector<std::string>{"destroyed " + title, "activate " + title + " 0"}));
    EXPECT_FALSE(closed->isVisible());
  }
  listener->log.clear();

  auto orphaned = banner("Orphaned");
  center->deliverNotification(orphaned);
  EXPECT_EQ(nextCall()["call"], "Notify");
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return !orphaned->isAnimating(); }, 10s));
  server->signal(SIGKILL);
  ASSERT_TRUE(heard(2));
  EXPECT_EQ(listener->log.back(), "activate Orphaned 0");
}

TEST_F(NotificationServerTest, AClickRefusedWhileAnotherBannerIsUnansweredIsToldAsAnswerZero) {
  start("actions");
  auto clicked = banner("Clicked");
  center->deliverNotification(clicked);
  nextCall();
  EXPECT_EQ(nextCall()["call"], "Notify");
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return !clicked->isAnimating(); }, 10s));

  server->write("hold\n");
  EXPECT_EQ(nextCall()["done"], "hold");
  auto waiting = banner("Waiting");
  center->deliverNotification(waiting);
  EXPECT_EQ(nextCall()["summary"], "Waiting");
  ASSERT_TRUE(waiting->isAnimating());

  // The centre refuses the click while the other banner is unanswered; the bubble is gone all
  // the same, so the banner must not stay counted as shown.
  server->write("invoke 1 default\n");
  EXPECT_EQ(nextCall()["done"], "invoke");
  ASSERT_TRUE(heard(2));
  EXPECT_EQ(listener->log, (std::vector<std::string>{"destroyed Clicked", "activate Clicked 0"}));
  EXPECT_FALSE(clicked->isVisible());

  // The server's own close of the answered bubble is not told again.
  server->write("closed 1 2\nrelease\n");
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return !waiting->isAnimating(); }, 10s));
  for (auto line = nextCall(2s); !line.is_null(); line = nextCall(200ms)) {
    if (line.value("done", "") == "release") break;
  }
  EXPECT_EQ(listener->log.size(), 2u);
  EXPECT_TRUE(waiting->isVisible());
}

TEST_F(NotificationServerTest, TakingABubbleAwayClosesItWithoutTellingAnyone) {
  start("actions");
  auto shown = banner("Shown");
  center->deliverNotification(shown);
  nextCall();
  nextCall();
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return !shown->isAnimating(); }, 10s));
  center->setCenterType(1);  // takes every shown banner away
  const auto close = nextCall();
  EXPECT_EQ(close["call"], "CloseNotification");
  EXPECT_EQ(close["id"], 1);
  auto next = banner("Next");
  center->deliverNotification(next);
  EXPECT_EQ(nextCall()["summary"], "Next");
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return !next->isAnimating(); }, 10s));
  EXPECT_TRUE(listener->log.empty());
}

TEST_F(NotificationServerTest, AServerThatNeverAnswersLeavesTheBannerAnimatingUntilItsTimeLimit) {
  start("actions", true);
  auto waiting = banner("Waiting");
  const auto began = std::chrono::steady_clock::now();
  center->deliverNotification(waiting);
  nextCall();
  EXPECT_EQ(nextCall()["call"], "Notify");
  EXPECT_TRUE(waiting->isAnimating());
  ASSERT_TRUE(heard(2, 15s));
  EXPECT_GE(std::chrono::steady_clock::now() - began, 4s);
  EXPECT_FALSE(waiting->isAnimating());
  EXPECT_EQ(listener->log.back(), "activate Waiting 0");
}

TEST_F(NotificationServerTest, SignalsFromAnyoneButTheServerAreIgnored) {
  start("actions,body-markup");
  auto shown = banner("<b>Bold</b> & co");  // a summary is plain text: sent as it is
  center->deliverNotification(shown);
  nextCall();
  EXPECT_EQ(nextCall()["summary"], "<b>Bold</b> & co");
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return !shown->isAnimating(); }, 10s));

  // A second program on the bus, not owning the server's name, sends the same signals.
  test::ChildProcess impostor({VEXA_FAKE_NOTIFICATION_SERVER, bus.address(), "actions"});
  ASSERT_EQ(impostor.readLine().value_or(""), R"({"ready":true})");
  impostor.write("invoke 1 default\nclosed 1 2\n");
  EXPECT_EQ(impostor.readLine().value_or(""), R"({"done":"invoke"})");
  EXPECT_EQ(impostor.readLine().value_or(""), R"({"done":"closed"})");
  // Our next call's answer comes after those signals: by then they were read.
  auto later = banner("Later");
  center->deliverNotification(later);
  EXPECT_EQ(nextCall()["summary"], "Later");
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return !later->isAnimating(); }, 10s));
  EXPECT_TRUE(listener->log.empty());
  EXPECT_TRUE(shown->isVisible());
}

TEST_F(NotificationServerTest, ABusWithoutAServerTellsTheBannerGone) {
  ASSERT_TRUE(bus.ok());
  useViews(makeNotificationServer(bus.address()));
  auto unseen = banner("Unseen");
  center->deliverNotification(unseen);
  ASSERT_TRUE(heard(2));
  EXPECT_EQ(listener->log, (std::vector<std::string>{"destroyed Unseen", "activate Unseen 0"}));
  EXPECT_FALSE(unseen->isVisible());
  EXPECT_FALSE(unseen->isAnimating());
}

TEST_F(NotificationServerTest, WithoutABusEveryBannerIsToldGoneOnALaterTurn) {
  useViews(makeNotificationServer("unix:path=/nonexistent/bus"));
  auto lost = banner("Lost");
  center->deliverNotification(lost);
  EXPECT_TRUE(listener->log.empty());
  ASSERT_TRUE(heard(2));
  EXPECT_EQ(listener->log.back(), "activate Lost 0");
  EXPECT_TRUE(center->deliveredNotifications().front() == lost);
}

}  // namespace notification_server_test
}  // namespace vexa
