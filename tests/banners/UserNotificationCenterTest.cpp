#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "banners/FakeBannerViews.h"
#include "banners/RecordingCenterDelegate.h"
#include "vexa/banners/UserNotification.h"
#include "vexa/banners/UserNotificationCenter.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace user_notification_center_test {

using test::FakeBannerViews;
using Banner = std::shared_ptr<UserNotification>;

class CenterTest : public ::testing::Test {
 protected:
  CenterTest()
      : views(std::make_shared<FakeBannerViews>()),
        center(UserNotificationCenter::create([this] { return now; }, views)),
        listener(std::make_shared<test::RecordingCenterDelegate>()) {
    center->setDelegate(listener);
  }

  Banner banner(const std::string& title, std::optional<double> dueAt = std::nullopt) {
    auto b = UserNotification::create();
    b->setTitle(title);
    if (dueAt) b->setDeliveryDate(Date(*dueAt));
    return b;
  }
  FakeBannerViews::View& viewOf(size_t i) { return *views->views.at(i); }

  Date now{1000};
  std::shared_ptr<FakeBannerViews> views;
  std::shared_ptr<UserNotificationCenter> center;
  std::shared_ptr<test::RecordingCenterDelegate> listener;
};

TEST_F(CenterTest, DueBannersAreShownOneATickAndOnlyWithTheDelegatesConsent) {
  center->scheduleNotification(banner("a", 900));
  center->scheduleNotification(banner("b", 900));
  center->scheduleNotification(banner("later", 1005));
  center->scheduleNotification(center->scheduledNotifications().front());  // already there
  EXPECT_EQ(center->scheduledNotifications().size(), 3u);

  center->checkMethod();
  EXPECT_EQ(listener->log, (std::vector<std::string>{"deliver a"}));
  center->checkMethod();
  EXPECT_EQ(listener->log, (std::vector<std::string>{"deliver a", "deliver b"}));
  center->checkMethod();  // "later" is not due yet
  EXPECT_EQ(listener->log.size(), 2u);
  now = Date(1005);
  center->checkMethod();
  EXPECT_EQ(listener->log.back(), "deliver later");
  EXPECT_TRUE(center->scheduledNotifications().empty());
  EXPECT_EQ(center->deliveredNotifications().size(), 3u);
  EXPECT_EQ(viewOf(0).movedIn, 1);

  // Refused, or no answer at all: recorded as delivered, never shown.
  listener->answer = false;
  auto refused = banner("refused");
  center->deliverNotification(refused);
  listener->answer.reset();
  auto unanswered = banner("unanswered");
  center->deliverNotification(unanswered);
  EXPECT_FALSE(refused->isVisible());
  EXPECT_FALSE(unanswered->isVisible());
  EXPECT_EQ(center->deliveredNotifications().size(), 5u);
  EXPECT_EQ(listener->log.size(), 3u);
}

TEST_F(CenterTest, TheTimerTicksAtOnceOnTheLoopOfTheThreadThatMadeTheCenter) {
  center->scheduleNotification(banner("first", 0));
  center->scheduleNotification(banner("second", 0));
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return listener->log.size() == 1; },
                                          std::chrono::milliseconds(900)));
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return listener->log.size() == 2; },
                                          std::chrono::seconds(5)));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
}

TEST_F(CenterTest, NothingIsDoneWhileABannerAnimatesOrInModeZero) {
  center->deliverNotification(banner("moving"));
  center->scheduleNotification(banner("due", 0));
  viewOf(0).animating = true;
  center->checkMethod();
  EXPECT_EQ(center->scheduledNotifications().size(), 1u);
  viewOf(0).animating = false;

  center->setCenterType(0);
  EXPECT_FALSE(center->deliveredNotifications().front()->isVisible());  // mode 0 hides them
  center->checkMethod();
  EXPECT_EQ(center->scheduledNotifications().size(), 1u);
  auto recorded = banner("recorded");
  center->deliverNotification(recorded);
  EXPECT_EQ(center->deliveredNotifications().back(), recorded);
  EXPECT_FALSE(recorded->isVisible());
}

TEST_F(CenterTest, InModeOneABannerStaysFiveSecondsAndShowingAnotherHidesTheFirst) {
  center->setCenterType(1);
  auto first = banner("first");
  center->deliverNotification(first);
  now = Date(1004);
  center->checkMethod();
  EXPECT_TRUE(first->isVisible());
  now = Date(1005);
  center->checkMethod();
  EXPECT_FALSE(first->isVisible());
  EXPECT_EQ(listener->log.back(), "destroyed first");

  auto second = banner("second");
  auto third = banner("third");
  center->deliverNotification(second);
  center->deliverNotification(third);
  EXPECT_FALSE(second->isVisible());
  EXPECT_TRUE(third->isVisible());
}

TEST_F(CenterTest, ABannerDeliveredDirectlyIsDismissedAndRepeatedByTheTimer) {
  const auto within = [](const std::function<bool()>& done) {
    return RunLoop::current().runUntil(done, std::chrono::seconds(5));
  };
  center->setCenterType(1);
  auto brief = banner("brief");
  center->deliverNotification(brief);
  now = Date(1005);
  ASSERT_TRUE(within([&] { return !brief->isVisible(); }));
  EXPECT_EQ(listener->log.back(), "destroyed brief");

  center->setCenterType(2);
  auto repeating = banner("repeating");
  DateComponents minute;
  minute.minute = 1;
  repeating->setDeliveryRepeatInterval(minute);
  center->presentedNotification(repeating);
  ASSERT_EQ(viewOf(1).presented, 1);
  now = Date(1065);
  ASSERT_TRUE(within([&] { return viewOf(1).presented == 2; }));
}

using Component = std::optional<int64_t>;
DateComponents every(Component weekday, Component day, Component hour, Component minute,
                     Component second) {
  DateComponents interval;
  interval.weekday = weekday;
  interval.day = day;
  interval.hour = hour;
  interval.minute = minute;
  interval.second = second;
  return interval;
}

struct RepeatCase {
  DateComponents interval;
  double firstRepeat;  // seconds after the delivery; 0 for never
};

class RepeatTest : public CenterTest, public ::testing::WithParamInterface<RepeatCase> {};

TEST_P(RepeatTest, RepeatsOnceTheIntervalHasPassedAndNeverUnderAMinute) {
  auto repeating = banner("r");
  repeating->setDeliveryRepeatInterval(GetParam().interval);
  center->deliverNotification(repeating);
  ASSERT_EQ(viewOf(0).presented, 1);
  const double first = GetParam().firstRepeat;
  if (first == 0) {
    for (double at : {60.0, 3600.0, 864000.0}) {
      now = Date(1000 + at);
      center->checkMethod();
    }
    EXPECT_EQ(viewOf(0).presented, 1);
    return;
  }
  now = Date(1000 + first - 1);
  center->checkMethod();
  EXPECT_EQ(viewOf(0).presented, 1);
  now = Date(1000 + first);
  center->checkMethod();
  EXPECT_EQ(viewOf(0).presented, 2);
  center->checkMethod();  // counted again from this delivery
  EXPECT_EQ(viewOf(0).presented, 2);
  now = Date(1000 + 2 * first);
  center->checkMethod();
  EXPECT_EQ(viewOf(0).presented, 3);
}

INSTANTIATE_TEST_SUITE_P(Intervals, RepeatTest,
                         ::testing::Values(RepeatCase{every({}, {}, {}, {}, 59), 0},
                                           RepeatCase{every({}, {}, {}, 1, {}), 60},
                                           RepeatCase{every({}, {}, {}, {}, 60), 60},
                                           RepeatCase{every({}, {}, 1, 0, 30), 3630},
                                           RepeatCase{every(1, {}, {}, {}, {}), 25200},
                                           RepeatCase{every({}, 1, {}, {}, {}), 86400}));

TEST_F(CenterTest, NineShownBannersStackFromTheTopRightCornerNewestOnTop) {
  std::vector<Banner> banners;
  for (int i = 0; i < 9; ++i) {
    now = Date(1000 + i);
    banners.push_back(banner("b" + std::to_string(i)));
    center->deliverNotification(banners.back());
  }
  // Newest first: the last delivered has offset 0.
  const double offsets[] = {0, 70, 140, 210, 280, 350, 355, 360, 365};
  for (int i = 0; i < 9; ++i) {
    const auto& view = viewOf(8 - i);
    EXPECT_EQ(view.origin.first, 1920 - 360) << i;
    EXPECT_EQ(view.origin.second, 1080 - 80 - 20 - offsets[i]) << i;
    EXPECT_EQ(view.level, 25 + 9 - i) << i;
  }
}

struct ActivationCase {
  int64_t mode;
  int64_t type;
  bool movedOut;
  bool fadedOut;
};

class ActivationTest : public CenterTest, public ::testing::WithParamInterface<ActivationCase> {};

TEST_P(ActivationTest, AnAnsweredBannerLeavesAsItsModeSaysAndTheDelegateHears) {
  const auto& c = GetParam();
  center->setCenterType(c.mode);
  auto answered = banner("x");
  center->deliverNotification(answered);
  viewOf(0).events->bannerAnswered(c.type);
  EXPECT_EQ(answered->activationType(), c.type);
  EXPECT_EQ(viewOf(0).movedOut, c.movedOut ? 1 : 0);
  EXPECT_EQ(viewOf(0).fadedOut, c.fadedOut ? 1 : 0);
  EXPECT_EQ(listener->log, (std::vector<std::string>{"deliver x", "destroyed x",
                                                     "activate x " + std::to_string(c.type)}));
}

INSTANTIATE_TEST_SUITE_P(
    ModesAndTypes, ActivationTest,
    ::testing::Values(ActivationCase{1, 0, true, false}, ActivationCase{1, 1, true, false},
                      ActivationCase{1, 2, true, false}, ActivationCase{2, 0, false, true},
                      ActivationCase{2, 1, false, false}, ActivationCase{2, 2, false, true}));

TEST_F(CenterTest, AClickWhileABannerAnimatesIsIgnoredAndAGoneBannerIsToldAsAnswerZero) {
  auto a = banner("a");
  auto b = banner("b");
  center->deliverNotification(a);
  center->deliverNotification(b);
  viewOf(1).animating = true;
  viewOf(0).events->bannerAnswered(1);
  EXPECT_EQ(a->activationType(), 0);
  EXPECT_EQ(listener->log.size(), 2u);
  viewOf(1).animating = false;

  viewOf(0).events->bannerAnswered(2);
  viewOf(1).visible = false;  // the server took it away
  viewOf(1).events->bannerGone();
  EXPECT_EQ(listener->log,
            (std::vector<std::string>{"deliver a", "deliver b", "destroyed a", "activate a 2",
                                      "destroyed b", "activate b 0"}));
}

}  // namespace user_notification_center_test
}  // namespace vexa
