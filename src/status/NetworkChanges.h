#pragma once

#include <functional>
#include <memory>

namespace vexa {

// Tells of changes to the machine's network configuration: links, addresses and routes that
// come, go or change, and the network manager's connections.
class NetworkChanges {
 public:
  virtual ~NetworkChanges() = default;
  // Starts calling `changed` on the calling thread's run loop, once for each burst of changes
  // (one interface going away changes its link, addresses and routes at once), until the
  // object is destroyed. False when changes cannot be heard; nothing is called then.
  virtual bool start(std::function<void()> changed) = 0;

  // The kernel's announcements for the network namespace of the calling process, and the
  // network manager's on the system bus.
  static std::unique_ptr<NetworkChanges> system();
};

}  // namespace vexa
