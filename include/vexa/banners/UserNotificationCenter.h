#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "vexa/Export.h"
#include "vexa/banners/UserNotificationDelegate.h"
#include "vexa/util/Date.h"

namespace vexa {

class BannerViewFactory;
class RunLoop;
class Timer;
class UserNotification;
class UserNotificationCenterDelegate;

// Schedules, shows, stacks, repeats and dismisses banners. A one-second timer on the loop of the
// thread that made the centre drives it (its first firing comes at once): due banners are shown,
// at most one a second, banners with a repeat interval of a minute or more are shown again, and
// in mode 1 a shown banner leaves after five seconds. The timer runs only while there is such
// work, so an idle centre costs its thread no wake-ups.
//
// Modes (centerType): 0 records delivered banners and shows nothing; 1 shows one banner at a
// time; 2 (the default) stacks them until they are answered.
//
// Everything runs on the centre's thread; nothing is locked.
class VEXA_EXPORT UserNotificationCenter
    : public UserNotificationDelegate,
      public std::enable_shared_from_this<UserNotificationCenter> {
 public:
  using Clock = std::function<Date()>;
  static constexpr double kTickSeconds = 1.0;
  static constexpr double kOneAtATimeSeconds = 5.0;
  static constexpr double kShortestRepeatSeconds = 60.0;

  // The process's centre, made at the first call on the calling thread's loop, with the
  // desktop's notification server as its view.
  static UserNotificationCenter& defaultUserNotificationCenter();
  // The platform's own centre; on Linux the library's, defaultUserNotificationCenter().
  static UserNotificationCenter& notificationCenter();
  // A centre on the calling thread's loop.
  static std::shared_ptr<UserNotificationCenter> create(Clock clock,
                                                        std::shared_ptr<BannerViewFactory> views);
  ~UserNotificationCenter() override;
  UserNotificationCenter(const UserNotificationCenter&) = delete;
  UserNotificationCenter& operator=(const UserNotificationCenter&) = delete;

  std::shared_ptr<UserNotificationCenterDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<UserNotificationCenterDelegate> delegate) {
    delegate_ = std::move(delegate);
  }
  const std::vector<std::shared_ptr<UserNotification>>& scheduledNotifications() const {
    return scheduled_;
  }
  // Every banner shown (on screen or not any more), in delivery order.
  const std::vector<std::shared_ptr<UserNotification>>& deliveredNotifications() const {
    return delivered_;
  }
  int64_t centerType() const { return centerType_; }
  // Modes 0 and 1 take every shown banner off the screen.
  void setCenterType(int64_t mode);

  void scheduleNotification(const std::shared_ptr<UserNotification>& banner);
  void removeScheduledNotification(const std::shared_ptr<UserNotification>& banner);
  void removeDeliveredNotification(const std::shared_ptr<UserNotification>& banner);
  void removeAllDeliveredNotifications();
  void deliverNotification(const std::shared_ptr<UserNotification>& banner);
  // Shows the banner now if the delegate lets it, and restacks.
  void presentedNotification(const std::shared_ptr<UserNotification>& banner);

  // Takes every shown banner off the screen and returns once the desktop has been told (a
  // banner the desktop is still being asked to show is closed once it answers; the thread's loop
  // may turn meanwhile): for a program that is about to end.
  void dismissAll();

  // One tick of the timer.
  void checkMethod();
  // Stacks the shown banners from the screen's top-right corner, newest first and on top.
  void sortVisibleNotifications();

  bool userNotificationWillActivate(const std::shared_ptr<UserNotification>& banner) override;
  void userNotification(const std::shared_ptr<UserNotification>& banner,
                        int64_t activationType) override;

 private:
  UserNotificationCenter(Clock clock, std::shared_ptr<BannerViewFactory> views);
  void start();
  // Starts the timer (its first firing at once) unless it runs.
  void ensureTicking();
  // Whether a tick may have something to do: banners waiting, animating, shown in mode 1 or
  // repeating.
  bool hasWork() const;
  void tick();
  bool anyAnimating() const;
  void moveOutVisible();
  // Seconds of a repeat interval, counting the defined components.
  static double repeatSeconds(const std::shared_ptr<UserNotification>& banner);

  const Clock clock_;
  const std::shared_ptr<BannerViewFactory> views_;
  std::weak_ptr<UserNotificationCenterDelegate> delegate_;
  std::vector<std::shared_ptr<UserNotification>> scheduled_;
  std::vector<std::shared_ptr<UserNotification>> delivered_;
  int64_t centerType_ = 2;
  std::unique_ptr<RunLoop> loop_;  // the loop of the thread that made the centre
  std::shared_ptr<Timer> timer_;
};

}  // namespace vexa
