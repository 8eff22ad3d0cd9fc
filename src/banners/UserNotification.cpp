#include "vexa/banners/UserNotification.h"

#include "vexa/banners/BannerViewFactory.h"
#include "vexa/banners/UserNotificationDelegate.h"

namespace vexa {

std::shared_ptr<UserNotification> UserNotification::create() {
  return std::shared_ptr<UserNotification>(new UserNotification());
}

UserNotification::~UserNotification() = default;

void UserNotification::setViewFactory(std::shared_ptr<BannerViewFactory> views, Clock clock) {
  views_ = std::move(views);
  clock_ = std::move(clock);
}

void UserNotification::setup(int64_t mode) {
  mode_ = mode;
  if (!view_ && views_) view_ = views_->makeView(*this);
}

void UserNotification::presentedNotification() {
  actualDeliveryDate_ = clock_ ? clock_() : Date::now();
  if (view_) view_->present(*this);
}

void UserNotification::moveInAnimation() {
  if (view_) view_->moveIn();
}

void UserNotification::moveOutAnimation() {
  if (view_) view_->moveOut();
}

void UserNotification::fadeOutAnimation() {
  if (view_) view_->fadeOut();
}

void UserNotification::moveAnimation(double x, double y) {
  if (view_) view_->moveTo(x, y);
}

void UserNotification::setLevel(int64_t level) {
  if (view_) view_->setLevel(level);
}

BannerSize UserNotification::windowSize() const { return view_ ? view_->size() : BannerSize{}; }

bool UserNotification::isVisible() const { return view_ && view_->isVisible(); }

bool UserNotification::isAnimating() const { return view_ && view_->isAnimating(); }

bool UserNotification::bannerAnswered(int64_t activationType) {
  auto self = shared_from_this();
  auto listener = delegate_.lock();
  if (listener && !listener->userNotificationWillActivate(self)) return false;
  activationType_ = activationType;
  if (listener) listener->userNotification(self, activationType);
  return true;
}

void UserNotification::bannerGone() {
  // Whatever else is under way, a banner that left the screen is told, or it would be taken
  // for one still shown.
  auto self = shared_from_this();
  activationType_ = 0;
  if (auto listener = delegate_.lock()) listener->userNotification(self, 0);
}

}  // namespace vexa
