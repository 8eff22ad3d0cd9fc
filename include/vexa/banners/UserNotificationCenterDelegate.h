#pragma once

#include <memory>
#include <optional>

#include "vexa/Export.h"

namespace vexa {

class UserNotification;
class UserNotificationCenter;

// Hears a banner centre's decisions, on the centre's thread. Every operation is optional.
class VEXA_EXPORT UserNotificationCenterDelegate {
 public:
  virtual ~UserNotificationCenterDelegate() = default;

  // Whether a banner may be shown. Without an answer (the default) nothing is shown.
  virtual std::optional<bool> userNotificationCenterShouldPresentNotification(
      UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) {
    (void)center, (void)banner;
    return std::nullopt;
  }
  // A banner was put on screen.
  virtual void userNotificationCenterDidDeliverNotification(
      UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) {
    (void)center, (void)banner;
  }
  // A banner left the screen.
  virtual void userNotificationCenterDidDestroyedNotification(
      UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) {
    (void)center, (void)banner;
  }
  // The user answered a banner; its activationType() says how.
  virtual void userNotificationCenterDidActivateNotification(
      UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) {
    (void)center, (void)banner;
  }
};

}  // namespace vexa
