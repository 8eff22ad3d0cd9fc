// Applications started through their desktop entry (GIO), with no launch context: nothing is
// raised or focused.
#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include "messaging/AppLauncher.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

class GioAppLauncher final : public AppLauncher {
 public:
  bool launch(const std::string& identity) override {
    if (identity.empty() || identity.find('/') != std::string::npos) return false;
    const std::string name = identity + ".desktop";
    g_autoptr(GDesktopAppInfo) app = g_desktop_app_info_new(name.c_str());
    if (!app) {
      SystemLog::log("no application %s to start", name.c_str());
      return false;
    }
    g_autoptr(GError) error = nullptr;
    if (!g_app_info_launch(G_APP_INFO(app), nullptr, nullptr, &error)) {
      SystemLog::log("could not start %s: %s", name.c_str(), error->message);
      return false;
    }
    return true;
  }
};

}  // namespace

std::shared_ptr<AppLauncher> AppLauncher::system() { return std::make_shared<GioAppLauncher>(); }

}  // namespace vexa
