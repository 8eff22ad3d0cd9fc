#pragma once

#include <cstdint>
#include <string>

#include "util/UniqueFd.h"

namespace vexa {

// Opens the client end of a channel: a TCP connection with Nagle's delay off and the descriptor
// closed on exec. Blocks until connected or refused.
class TcpConnector {
 public:
  // `host` is an IPv4 or IPv6 address ("127.0.0.1", "::1"); empty means 127.0.0.1. An empty
  // descriptor on any failure (errno says why).
  static UniqueFd connect(const std::string& host, uint16_t port);
};

}  // namespace vexa
