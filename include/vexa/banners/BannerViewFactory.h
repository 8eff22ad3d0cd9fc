#pragma once

#include <cstdint>
#include <memory>

#include "vexa/Export.h"
#include "vexa/banners/BannerView.h"

namespace vexa {

// Makes the views of a centre's banners and tells the screen they stack on.
class VEXA_EXPORT BannerViewFactory {
 public:
  virtual ~BannerViewFactory() = default;
  virtual std::unique_ptr<BannerView> makeView(BannerView::Events& events) = 0;
  virtual BannerSize screenSize() const { return {}; }
  // The window level of status items; banners stack above it.
  virtual int64_t statusWindowLevel() const { return 25; }
  // Returns once what the views asked of the desktop has gone out, including what can only be
  // asked once the desktop answers a request still under way. May turn the calling thread's
  // loop meanwhile.
  virtual void flush() {}
};

}  // namespace vexa
