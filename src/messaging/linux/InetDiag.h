#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <system_error>
#include <variant>
#include <vector>

#include "messaging/SocketTuple.h"

namespace vexa {

// The kernel's socket-diagnostics protocol (NETLINK_SOCK_DIAG, inet_diag), as far as finding
// the owner of the other end of a TCP connection on this machine: the peer's socket is the one
// whose local end is our remote end and whose remote end is our local end. Pure: building the
// request and reading the reply do no I/O, so both are tested on recorded bytes.
class InetDiag {
 public:
  // One exact-match request (no dump) for the peer's socket of `tuple`.
  static std::vector<uint8_t> peerRequest(const SocketTuple& tuple, uint32_t sequence);

  // The owner uid from the reply to peerRequest(tuple, sequence): an error code when the
  // kernel answered with one (ENOENT: the peer is gone, or is not on this machine), EBADMSG for
  // a reply that is truncated, for another request, or about another socket.
  static std::variant<uint32_t, std::error_code> parsePeerReply(std::span<const uint8_t> reply,
                                                                const SocketTuple& tuple,
                                                                uint32_t sequence);
};

}  // namespace vexa
