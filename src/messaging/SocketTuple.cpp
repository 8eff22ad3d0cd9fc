#include "messaging/SocketTuple.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace vexa {

namespace {

// Copies one end's address and port; false for a family other than IPv4/IPv6.
bool readEnd(const sockaddr_storage& address, SocketTuple::Family& family,
             std::array<uint8_t, 16>& bytes, uint16_t& port) {
  if (address.ss_family == AF_INET) {
    const auto& in = reinterpret_cast<const sockaddr_in&>(address);
    family = SocketTuple::Family::IPv4;
    std::memcpy(bytes.data(), &in.sin_addr, 4);
    port = ntohs(in.sin_port);
    return true;
  }
  if (address.ss_family == AF_INET6) {
    const auto& in6 = reinterpret_cast<const sockaddr_in6&>(address);
    family = SocketTuple::Family::IPv6;
    std::memcpy(bytes.data(), &in6.sin6_addr, 16);
    port = ntohs(in6.sin6_port);
    return true;
  }
  return false;
}

}  // namespace

std::optional<SocketTuple> SocketTuple::of(int connectedFD) {
  sockaddr_storage local{}, remote{};
  socklen_t localLength = sizeof local, remoteLength = sizeof remote;
  if (::getsockname(connectedFD, reinterpret_cast<sockaddr*>(&local), &localLength) != 0 ||
      ::getpeername(connectedFD, reinterpret_cast<sockaddr*>(&remote), &remoteLength) != 0) {
    return std::nullopt;
  }
  SocketTuple tuple;
  Family remoteFamily;
  if (!readEnd(local, tuple.family, tuple.localAddress, tuple.localPort) ||
      !readEnd(remote, remoteFamily, tuple.remoteAddress, tuple.remotePort) ||
      remoteFamily != tuple.family) {
    return std::nullopt;
  }
  return tuple;
}

bool SocketTuple::remoteIsLoopback() const {
  const auto& a = remoteAddress;
  if (family == Family::IPv4) return a[0] == 127;
  static constexpr uint8_t kLoopback6[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  static constexpr uint8_t kMappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
  if (std::equal(a.begin(), a.end(), kLoopback6)) return true;
  return std::equal(a.begin(), a.begin() + 12, kMappedPrefix) && a[12] == 127;
}

std::string SocketTuple::remoteAddressText() const {
  char text[INET6_ADDRSTRLEN] = "";
  ::inet_ntop(family == Family::IPv4 ? AF_INET : AF_INET6, remoteAddress.data(), text, sizeof text);
  return text;
}

}  // namespace vexa
