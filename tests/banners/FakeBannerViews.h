#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "vexa/banners/BannerViewFactory.h"

namespace vexa::test {

// Views that only remember what was asked of them; a test plays the user and the screen.
class FakeBannerViews : public BannerViewFactory {
 public:
  struct View : BannerView {
    explicit View(Events& e) : events(&e) {}
    void present(const UserNotification&) override {
      ++presented;
      visible = true;
    }
    void moveIn() override { ++movedIn; }
    void moveOut() override {
      ++movedOut;
      visible = false;
    }
    void fadeOut() override {
      ++fadedOut;
      visible = false;
    }
    void moveTo(double x, double y) override { origin = {x, y}; }
    void setLevel(int64_t l) override { level = l; }
    bool isVisible() const override { return visible; }
    bool isAnimating() const override { return animating; }
    BannerSize size() const override { return bannerSize; }

    Events* events;
    int presented = 0;
    int movedIn = 0;
    int movedOut = 0;
    int fadedOut = 0;
    std::pair<double, double> origin{-1, -1};
    int64_t level = 0;
    bool visible = false;
    bool animating = false;
    BannerSize bannerSize;
  };

  std::unique_ptr<BannerView> makeView(BannerView::Events& events) override {
    auto view = std::make_unique<View>(events);
    view->bannerSize = bannerSize;
    views.push_back(view.get());
    return view;
  }
  BannerSize screenSize() const override { return screen; }
  int64_t statusWindowLevel() const override { return 25; }

  std::vector<View*> views;  // in the order made; owned by their banners
  BannerSize screen{1920, 1080};
  BannerSize bannerSize{360, 80};
};

}  // namespace vexa::test
