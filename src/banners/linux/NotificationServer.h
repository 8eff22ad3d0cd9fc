#pragma once

#include <memory>
#include <optional>
#include <string>

namespace vexa {

class BannerViewFactory;

// Banners as bubbles of the desktop's notification server (org.freedesktop.Notifications), over
// a connection of their own to the bus at `address`; with no address, the session bus the
// environment names (DBUS_SESSION_BUS_ADDRESS, else $XDG_RUNTIME_DIR/bus when it exists). No bus
// is never started. Without a bus or a server every banner is told gone at once.
//
// Made and used on one thread, whose loop receives the server's answers and signals.
std::shared_ptr<BannerViewFactory> makeNotificationServer(
    std::optional<std::string> address = std::nullopt);

// The session bus address of the environment; nothing when there is none.
std::optional<std::string> sessionBusAddress();

}  // namespace vexa
