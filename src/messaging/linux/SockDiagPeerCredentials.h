#pragma once

#include <atomic>

#include "messaging/PeerCredentials.h"

namespace vexa {

// Asks the kernel (NETLINK_SOCK_DIAG) for the owner of a loopback connection's other end: one
// netlink socket and one round trip per question, answered within a second.
class SockDiagPeerCredentials final : public PeerCredentials {
 public:
  std::variant<uint32_t, std::error_code> ownerOfPeer(const SocketTuple& tuple) override;

 private:
  std::atomic<uint32_t> sequence_{1};
};

}  // namespace vexa
