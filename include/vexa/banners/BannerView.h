#pragma once

#include <cstdint>
#include <memory>

#include "vexa/Export.h"

namespace vexa {

class UserNotification;

// Width and height, in points.
struct BannerSize {
  double width = 0;
  double height = 0;
};

// How one banner is drawn: a window of its own, or a notification server's bubble. The banner
// calls it on its centre's thread.
class VEXA_EXPORT BannerView {
 public:
  // What the view tells its banner, on the centre's thread and never from inside a call of the
  // banner's: the user answered (2 action button, 1 body, 0 other button), or the banner went
  // away without our asking (told as an answer of 0).
  class Events {
   public:
    virtual ~Events() = default;
    // False when the answer was refused (the banner's delegate would not act on it now): a view
    // whose banner has left the screen with the answer then tells it gone.
    virtual bool bannerAnswered(int64_t activationType) = 0;
    virtual void bannerGone() = 0;
  };

  virtual ~BannerView() = default;

  // Shows the banner's current content, or updates it in place when shown.
  virtual void present(const UserNotification& banner) = 0;
  virtual void moveIn() {}
  // Takes the banner off the screen, sliding or fading.
  virtual void moveOut() = 0;
  virtual void fadeOut() { moveOut(); }
  virtual void moveTo(double x, double y) { (void)x, (void)y; }
  virtual void setLevel(int64_t level) { (void)level; }
  // Shown and not taken off since.
  virtual bool isVisible() const = 0;
  // An animation (or a request to the server) is under way.
  virtual bool isAnimating() const = 0;
  virtual BannerSize size() const { return {}; }
};

}  // namespace vexa
