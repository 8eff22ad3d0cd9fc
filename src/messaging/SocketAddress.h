#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>

namespace vexa {

// An IPv4 or IPv6 socket address, as the server binds and the client connects.
struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t length = 0;

  // A dotted IPv4 address or an IPv6 one ("127.0.0.1", "::1"); none for anything else.
  static std::optional<SocketAddress> parse(const std::string& host, uint16_t port);
  // The numeric text and the port (host byte order) of an IPv4 or IPv6 address; "" and 0 for
  // another family.
  static std::string textOf(const sockaddr_storage& address);
  static uint16_t portOf(const sockaddr_storage& address);

  int family() const { return storage.ss_family; }
  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

}  // namespace vexa
