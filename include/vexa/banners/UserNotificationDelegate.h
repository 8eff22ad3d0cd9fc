#pragma once

#include <cstdint>
#include <memory>

#include "vexa/Export.h"

namespace vexa {

class UserNotification;

// Hears a banner's clicks (its centre, in this library). Every operation is optional.
class VEXA_EXPORT UserNotificationDelegate {
 public:
  virtual ~UserNotificationDelegate() = default;

  // Whether a click may act now; the default lets it.
  virtual bool userNotificationWillActivate(const std::shared_ptr<UserNotification>& banner) {
    (void)banner;
    return true;
  }
  // The banner was answered: 2 its action button, 1 its body, 0 anything else (its other button,
  // or it went away without an answer).
  virtual void userNotification(const std::shared_ptr<UserNotification>& banner,
                                int64_t activationType) {
    (void)banner, (void)activationType;
  }
};

}  // namespace vexa
