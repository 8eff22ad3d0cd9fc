#include "vexa/banners/UserNotificationCenter.h"

#include <algorithm>

#include "banners/SystemBannerViews.h"
#include "vexa/banners/BannerViewFactory.h"
#include "vexa/banners/UserNotification.h"
#include "vexa/banners/UserNotificationCenterDelegate.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/Timer.h"

namespace vexa {

namespace {

using Banner = std::shared_ptr<UserNotification>;

void addIfAbsent(std::vector<Banner>& list, const Banner& banner) {
  if (std::find(list.begin(), list.end(), banner) == list.end()) list.push_back(banner);
}

void remove(std::vector<Banner>& list, const Banner& banner) {
  list.erase(std::remove(list.begin(), list.end(), banner), list.end());
}

// How far below the top-right corner the i-th banner of a stack hangs: the first six overlap by
// ten points, the seventh and eighth peek out five and ten points below the sixth, and the rest
// lie fifteen points below it.
double stackOffset(size_t i, double height) {
  const double step = height - 10;
  const auto index = static_cast<double>(i);
  if (i < 6) return index * step;
  if (i < 8) return (-25 + 5 * index) + 5 * step;
  return 5 * step + 15;
}

}  // namespace

UserNotificationCenter& UserNotificationCenter::defaultUserNotificationCenter() {
  static auto* instance = new std::shared_ptr<UserNotificationCenter>(
      create([] { return Date::now(); }, makeSystemBannerViews()));
  return **instance;
}

UserNotificationCenter& UserNotificationCenter::notificationCenter() {
  return defaultUserNotificationCenter();
}

std::shared_ptr<UserNotificationCenter> UserNotificationCenter::create(
    Clock clock, std::shared_ptr<BannerViewFactory> views) {
  std::shared_ptr<UserNotificationCenter> center(
      new UserNotificationCenter(std::move(clock), std::move(views)));
  center->start();
  return center;
}

UserNotificationCenter::UserNotificationCenter(Clock clock,
                                               std::shared_ptr<BannerViewFactory> views)
    : clock_(std::move(clock)), views_(std::move(views)) {}

UserNotificationCenter::~UserNotificationCenter() {
  scheduled_.clear();
  if (timer_) timer_->invalidate();
}

void UserNotificationCenter::start() { loop_ = std::make_unique<RunLoop>(RunLoop::current()); }

void UserNotificationCenter::ensureTicking() {
  if (timer_ && timer_->isValid()) return;
  std::weak_ptr<UserNotificationCenter> weak = weak_from_this();
  auto tick = [weak] {
    if (auto center = weak.lock()) center->checkMethod();
  };
  loop_->post(tick);  // the timer's first firing comes at once
  timer_ = Timer::scheduledOn(*loop_, kTickSeconds, true, [tick](Timer&) { tick(); });
}

bool UserNotificationCenter::hasWork() const {
  if (!scheduled_.empty() || anyAnimating()) return true;
  return std::any_of(delivered_.begin(), delivered_.end(), [this](const Banner& banner) {
    return (centerType_ == 1 && banner->isVisible()) ||
           repeatSeconds(banner) >= kShortestRepeatSeconds;
  });
}

void UserNotificationCenter::setCenterType(int64_t mode) {
  centerType_ = mode;
  if (mode == 0 || mode == 1) moveOutVisible();
}

void UserNotificationCenter::scheduleNotification(const Banner& banner) {
  if (!banner) return;
  addIfAbsent(scheduled_, banner);
  ensureTicking();
}

void UserNotificationCenter::removeScheduledNotification(const Banner& banner) {
  remove(scheduled_, banner);
}

void UserNotificationCenter::removeDeliveredNotification(const Banner& banner) {
  remove(delivered_, banner);
}

void UserNotificationCenter::removeAllDeliveredNotifications() { delivered_.clear(); }

void UserNotificationCenter::deliverNotification(const Banner& banner) {
  if (!banner) return;
  if (centerType_ == 1) {
    moveOutVisible();
    presentedNotification(banner);
  } else if (centerType_ == 0) {
    addIfAbsent(delivered_, banner);
  } else {
    presentedNotification(banner);
  }
}

void UserNotificationCenter::presentedNotification(const Banner& banner) {
  if (!banner) return;
  addIfAbsent(delivered_, banner);
  remove(scheduled_, banner);
  banner->setViewFactory(views_, clock_);
  if (banner->isVisible()) {
    banner->setup(centerType_);
    banner->presentedNotification();
  } else if (auto listener = delegate_.lock()) {
    const auto answer = listener->userNotificationCenterShouldPresentNotification(*this, banner);
    if (answer.value_or(false)) {
      banner->setup(centerType_);
      banner->setDelegate(std::static_pointer_cast<UserNotificationDelegate>(shared_from_this()));
      banner->presentedNotification();
      banner->moveInAnimation();
      listener->userNotificationCenterDidDeliverNotification(*this, banner);
    }
  }
  sortVisibleNotifications();
  // A banner shown here rather than by a tick (delivered directly) still has to leave after its
  // time in mode 1 or come back after its repeat interval: the timer must run for it.
  if (hasWork()) ensureTicking();
}

void UserNotificationCenter::dismissAll() {
  moveOutVisible();
  if (views_) views_->flush();
}

void UserNotificationCenter::checkMethod() {
  tick();
  // An idle centre does not wake its thread every second: the timer starts again with the next
  // banner scheduled or shown.
  if (timer_ && !hasWork()) timer_->invalidate();
}

void UserNotificationCenter::tick() {
  if (anyAnimating() || centerType_ == 0) return;
  const auto scheduled = scheduled_;
  const auto delivered = delivered_;
  const Date now = clock_();
  if (centerType_ == 1) {
    for (const auto& banner : delivered) {
      if (!banner->isVisible()) continue;
      const auto shown = banner->actualDeliveryDate();
      if (shown && now.timeIntervalSinceDate(*shown) < kOneAtATimeSeconds) return;
      banner->moveOutAnimation();
      if (auto listener = delegate_.lock()) {
        listener->userNotificationCenterDidDestroyedNotification(*this, banner);
      }
    }
  }
  for (const auto& banner : scheduled) {
    if (!banner->deliveryDate() || *banner->deliveryDate() <= now) {
      presentedNotification(banner);
      return;
    }
  }
  for (const auto& banner : delivered) {
    const double interval = repeatSeconds(banner);
    const auto shown = banner->actualDeliveryDate();
    if (interval >= kShortestRepeatSeconds && shown && shown->addingTimeInterval(interval) <= now) {
      presentedNotification(banner);
      return;
    }
  }
}

void UserNotificationCenter::sortVisibleNotifications() {
  std::vector<Banner> visible;
  for (const auto& banner : delivered_) {
    if (banner->isVisible()) visible.push_back(banner);
  }
  std::stable_sort(visible.begin(), visible.end(), [](const Banner& a, const Banner& b) {
    return a->actualDeliveryDate().value_or(Date()) > b->actualDeliveryDate().value_or(Date());
  });
  const BannerSize screen = views_ ? views_->screenSize() : BannerSize{};
  const int64_t statusLevel = views_ ? views_->statusWindowLevel() : 0;
  const auto count = static_cast<int64_t>(visible.size());
  for (size_t i = 0; i < visible.size(); ++i) {
    const auto& banner = visible[i];
    banner->setLevel(statusLevel + count - static_cast<int64_t>(i));
    const BannerSize window = banner->windowSize();
    const double x = screen.width - window.width;
    const double y = screen.height - window.height - 20 - stackOffset(i, window.height);
    banner->moveAnimation(x, y);
  }
}

bool UserNotificationCenter::userNotificationWillActivate(const Banner& banner) {
  (void)banner;
  return !anyAnimating();
}

void UserNotificationCenter::userNotification(const Banner& banner, int64_t activationType) {
  if (centerType_ == 1) {
    banner->moveOutAnimation();
  } else if (activationType == 0 || activationType == 2) {
    banner->fadeOutAnimation();
    sortVisibleNotifications();
  }
  if (auto listener = delegate_.lock()) {
    listener->userNotificationCenterDidDestroyedNotification(*this, banner);
    listener->userNotificationCenterDidActivateNotification(*this, banner);
  }
}

bool UserNotificationCenter::anyAnimating() const {
  return std::any_of(delivered_.begin(), delivered_.end(),
                     [](const Banner& banner) { return banner->isAnimating(); });
}

void UserNotificationCenter::moveOutVisible() {
  for (const auto& banner : std::vector<Banner>(delivered_)) {
    if (banner->isVisible()) banner->moveOutAnimation();
  }
}

double UserNotificationCenter::repeatSeconds(const Banner& banner) {
  const auto& interval = banner->deliveryRepeatInterval();
  if (!interval) return 0;
  return static_cast<double>(interval->weekday.value_or(0) * 25200 +
                             interval->day.value_or(0) * 86400 + interval->hour.value_or(0) * 3600 +
                             interval->minute.value_or(0) * 60 + interval->second.value_or(0));
}

}  // namespace vexa
