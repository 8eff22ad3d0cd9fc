#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "status/ActiveConnection.h"

namespace vexa {

// A network manager that keeps the machine's connections and tells when they change.
class NetworkDaemon {
 public:
  virtual ~NetworkDaemon() = default;
  // The active connections, the primary one first; nothing when the manager is not running or
  // did not answer as it should. Blocks for at most a few seconds.
  virtual std::optional<std::vector<ActiveConnection>> activeConnections() = 0;
  // Starts calling `changed` on the calling thread's run loop when the manager's state or a
  // property of its objects changes, or the manager starts or stops, until the object is
  // destroyed. False when nothing can be heard.
  virtual bool follow(std::function<void()> changed) = 0;

  // The manager on the system bus ($DBUS_SYSTEM_BUS_ADDRESS when set); null without a bus.
  static std::unique_ptr<NetworkDaemon> system();
};

}  // namespace vexa
