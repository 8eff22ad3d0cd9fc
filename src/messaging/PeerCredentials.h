#pragma once

#include <cstdint>
#include <optional>
#include <system_error>
#include <variant>

#include "messaging/SocketTuple.h"

namespace vexa {

// Finds who owns the other end of a TCP connection on this machine. Safe from any thread.
class PeerCredentials {
 public:
  virtual ~PeerCredentials() = default;
  // The uid owning the peer's socket, or why it cannot be told (ENOENT: the peer is gone or
  // not on this machine; anything else: the lookup itself failed).
  virtual std::variant<uint32_t, std::error_code> ownerOfPeer(const SocketTuple& tuple) = 0;
};

}  // namespace vexa
