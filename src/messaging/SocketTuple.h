#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace vexa {

// The two ends of a connected TCP socket as this process sees them: `local` is our end,
// `remote` the peer's. Addresses are in network byte order; an IPv4 address fills the first
// four bytes.
struct SocketTuple {
  enum class Family { IPv4, IPv6 };
  Family family = Family::IPv4;
  std::array<uint8_t, 16> localAddress{};
  std::array<uint8_t, 16> remoteAddress{};
  uint16_t localPort = 0;  // host byte order
  uint16_t remotePort = 0;

  // Both ends of a connected socket; none when either cannot be read or the socket is not
  // IPv4/IPv6.
  static std::optional<SocketTuple> of(int connectedFD);
  // Whether the peer is on this machine: 127.0.0.0/8, ::1, or ::ffff:127.0.0.0/104.
  bool remoteIsLoopback() const;
  // The peer's address as text ("127.0.0.1", "::1").
  std::string remoteAddressText() const;
};

}  // namespace vexa
