#include "messaging/SocketAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace vexa {

std::optional<SocketAddress> SocketAddress::parse(const std::string& host, uint16_t port) {
  SocketAddress address;
  auto& v4 = reinterpret_cast<sockaddr_in&>(address.storage);
  auto& v6 = reinterpret_cast<sockaddr_in6&>(address.storage);
  if (::inet_pton(AF_INET, host.c_str(), &v4.sin_addr) == 1) {
    v4.sin_family = AF_INET;
    v4.sin_port = htons(port);
    address.length = sizeof v4;
  } else if (::inet_pton(AF_INET6, host.c_str(), &v6.sin6_addr) == 1) {
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(port);
    address.length = sizeof v6;
  } else {
    return std::nullopt;
  }
  return address;
}

std::string SocketAddress::textOf(const sockaddr_storage& address) {
  char text[INET6_ADDRSTRLEN] = "";
  if (address.ss_family == AF_INET) {
    ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(address).sin_addr, text,
                sizeof text);
  } else if (address.ss_family == AF_INET6) {
    ::inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6&>(address).sin6_addr, text,
                sizeof text);
  }
  return text;
}

uint16_t SocketAddress::portOf(const sockaddr_storage& address) {
  if (address.ss_family == AF_INET) {
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
  }
  if (address.ss_family == AF_INET6) {
    return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
  }
  return 0;
}

}  // namespace vexa
