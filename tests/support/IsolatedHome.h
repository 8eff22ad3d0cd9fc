#pragma once

#include <string>

#include "support/TempDir.h"

namespace vexa::test {

// A home folder, data folders and cache of its own in a temporary folder, with HOME and XDG_*
// pointing there (and back when it goes), so nothing a test or a program it starts does touches
// the real ones: home/Applications, the user's applications folder and Trash, and the system
// applications folder sys/applications. No session bus or display is reachable from it, so no
// test reaches the desktop the tests run on.
class IsolatedHome {
 public:
  IsolatedHome()
      : home_("HOME", dir / "home"),
        dataHome_("XDG_DATA_HOME", dir / "home/.local/share"),
        dataDirs_("XDG_DATA_DIRS", dir / "sys"),
        cacheHome_("XDG_CACHE_HOME", dir / "home/.cache"),
        configHome_("XDG_CONFIG_HOME", dir / "home/.config"),
        sessionBus_("DBUS_SESSION_BUS_ADDRESS", std::nullopt),
        runtimeDir_("XDG_RUNTIME_DIR", dir / "run"),
        display_("DISPLAY", std::nullopt),
        waylandDisplay_("WAYLAND_DISPLAY", std::nullopt) {
    for (const char* folder : {"home/Applications", "home/.local/share/applications",
                               "home/.local/share/Trash/files", "sys/applications"}) {
      dir.mkdir(folder);
    }
  }
  std::string trash() const { return dir / "home/.local/share/Trash/files"; }

  TempDir dir;

 private:
  ScopedEnv home_, dataHome_, dataDirs_, cacheHome_, configHome_, sessionBus_, runtimeDir_,
      display_, waylandDisplay_;
};

}  // namespace vexa::test
