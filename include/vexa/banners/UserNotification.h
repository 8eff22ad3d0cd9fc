#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "vexa/Export.h"
#include "vexa/banners/BannerView.h"
#include "vexa/banners/DateComponents.h"
#include "vexa/util/Date.h"

namespace vexa {

class BannerViewFactory;
class Image;
class UserNotificationDelegate;

// One banner: what it says, when it is due, and how the user answered it. Its centre gives it a
// view (BannerView) that draws it; until then it is shown nowhere.
//
// Used on its centre's thread only.
class VEXA_EXPORT UserNotification : public std::enable_shared_from_this<UserNotification>,
                                     private BannerView::Events {
 public:
  using Clock = std::function<Date()>;

  static std::shared_ptr<UserNotification> create();
  ~UserNotification() override;
  UserNotification(const UserNotification&) = delete;
  UserNotification& operator=(const UserNotification&) = delete;

  std::shared_ptr<const Image> notificationIcon() const { return icon_; }
  void setNotificationIcon(std::shared_ptr<const Image> icon) { icon_ = std::move(icon); }
  const std::string& title() const { return title_; }
  void setTitle(std::string title) { title_ = std::move(title); }
  const std::string& subtitle() const { return subtitle_; }
  void setSubtitle(std::string subtitle) { subtitle_ = std::move(subtitle); }
  const std::string& informativeText() const { return informativeText_; }
  void setInformativeText(std::string text) { informativeText_ = std::move(text); }
  int64_t notifyType() const { return notifyType_; }
  void setNotifyType(int64_t type) { notifyType_ = type; }
  // The application the banner speaks for (its identity, e.g. "com.example.App").
  const std::string& appIdentity() const { return appIdentity_; }
  void setAppIdentity(std::string identity) { appIdentity_ = std::move(identity); }
  // The kind of report (e.g. "MonitorApplication"); empty when none.
  const std::string& identity() const { return identity_; }
  void setIdentity(std::string identity) { identity_ = std::move(identity); }
  bool hasActionButton() const { return hasActionButton_; }
  void setHasActionButton(bool has) { hasActionButton_ = has; }
  const std::string& actionButtonTitle() const { return actionButtonTitle_; }
  void setActionButtonTitle(std::string title) { actionButtonTitle_ = std::move(title); }
  const std::string& otherButtonTitle() const { return otherButtonTitle_; }
  void setOtherButtonTitle(std::string title) { otherButtonTitle_ = std::move(title); }
  // 2 the action button was clicked, 1 the body, 0 otherwise.
  int64_t activationType() const { return activationType_; }

  // When it is due; none means at once.
  const std::optional<Date>& deliveryDate() const { return deliveryDate_; }
  void setDeliveryDate(std::optional<Date> date) { deliveryDate_ = date; }
  // When it was last put on screen.
  const std::optional<Date>& actualDeliveryDate() const { return actualDeliveryDate_; }
  const std::optional<DateComponents>& deliveryRepeatInterval() const { return repeat_; }
  void setDeliveryRepeatInterval(std::optional<DateComponents> interval) { repeat_ = interval; }

  std::shared_ptr<UserNotificationDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<UserNotificationDelegate> delegate) {
    delegate_ = std::move(delegate);
  }

  // Gives the banner the views it is drawn with and the clock its delivery is timed by (its
  // centre does, before showing it). The view is made at the first setup().
  void setViewFactory(std::shared_ptr<BannerViewFactory> views, Clock clock);
  // Prepares the banner for the centre's mode (0, 1 or 2).
  void setup(int64_t mode);
  // Shows it (or shows it again) and notes the time.
  void presentedNotification();
  void moveInAnimation();
  void moveOutAnimation();
  void fadeOutAnimation();
  void moveAnimation(double x, double y);
  void setLevel(int64_t level);
  BannerSize windowSize() const;
  bool isVisible() const;
  bool isAnimating() const;

 private:
  UserNotification() = default;
  bool bannerAnswered(int64_t activationType) override;
  void bannerGone() override;

  std::shared_ptr<const Image> icon_;
  std::string title_;
  std::string subtitle_;
  std::string informativeText_;
  int64_t notifyType_ = 0;
  std::string appIdentity_;
  std::string identity_;
  bool hasActionButton_ = false;
  std::string actionButtonTitle_;
  std::string otherButtonTitle_;
  int64_t activationType_ = 0;
  std::optional<Date> deliveryDate_;
  std::optional<Date> actualDeliveryDate_;
  std::optional<DateComponents> repeat_;
  std::weak_ptr<UserNotificationDelegate> delegate_;
  int64_t mode_ = 2;
  std::shared_ptr<BannerViewFactory> views_;
  Clock clock_;
  std::unique_ptr<BannerView> view_;
};

}  // namespace vexa
