#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <memory>

#include "status/InterfaceAddresses.h"

namespace vexa {
namespace {

std::string text(const sockaddr* address) {
  char buffer[INET6_ADDRSTRLEN] = {};
  if (address == nullptr) return {};
  if (address->sa_family == AF_INET) {
    const auto* in = reinterpret_cast<const sockaddr_in*>(address);
    if (!::inet_ntop(AF_INET, &in->sin_addr, buffer, sizeof buffer)) return {};
  } else if (address->sa_family == AF_INET6) {
    const auto* in6 = reinterpret_cast<const sockaddr_in6*>(address);
    if (!::inet_ntop(AF_INET6, &in6->sin6_addr, buffer, sizeof buffer)) return {};
  } else {
    return {};
  }
  return buffer;
}

bool isGlobal(const sockaddr* address) {
  if (address->sa_family == AF_INET) {
    const uint32_t host = ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr);
    return (host >> 24U) != 127 && (host >> 16U) != 0xa9feU;  // loopback, 169.254/16
  }
  const auto& in6 = reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
  return !IN6_IS_ADDR_LOOPBACK(&in6) && !IN6_IS_ADDR_LINKLOCAL(&in6);
}

class IfaddrsInterfaceAddresses final : public InterfaceAddresses {
 public:
  std::vector<InterfaceAddress> list() override {
    std::vector<InterfaceAddress> found;
    ifaddrs* all = nullptr;
    if (::getifaddrs(&all) != 0) return found;
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(all, ::freeifaddrs);
    for (const ifaddrs* entry = all; entry != nullptr; entry = entry->ifa_next) {
      const sockaddr* address = entry->ifa_addr;
      if (address == nullptr || entry->ifa_name == nullptr) continue;
      if (address->sa_family != AF_INET && address->sa_family != AF_INET6) continue;
      found.push_back(InterfaceAddress{entry->ifa_name, address->sa_family == AF_INET6,
                                       text(address), text(entry->ifa_netmask), isGlobal(address)});
    }
    return found;
  }
};

}  // namespace

std::unique_ptr<InterfaceAddresses> InterfaceAddresses::system() {
  return std::make_unique<IfaddrsInterfaceAddresses>();
}

}  // namespace vexa
