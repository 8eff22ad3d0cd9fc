#pragma once

#include <memory>

namespace vexa {

class BannerViewFactory;

// The desktop's own way of showing banners (on Linux its notification server).
std::shared_ptr<BannerViewFactory> makeSystemBannerViews();

}  // namespace vexa
