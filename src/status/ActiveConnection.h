#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vexa {

// One connection a network manager has up, with its IPv4 configuration.
struct ActiveConnection {
  struct Address {
    std::string address;  // "192.168.1.20"
    uint32_t prefix = 0;  // 24
    bool operator==(const Address&) const = default;
  };

  std::string uuid;                     // the connection's lasting identity
  std::string id;                       // its name for people: "Wired connection 1", "Home"
  std::string type;                     // "802-3-ethernet", "802-11-wireless", "vpn", ...
  std::vector<std::string> interfaces;  // the interfaces it runs over, "enp0s31f6"
  std::vector<Address> ipv4;
  std::string gateway;           // empty without one
  std::vector<std::string> dns;  // name servers, in order
  bool primary = false;          // the one carrying the default route

  bool operator==(const ActiveConnection&) const = default;
};

}  // namespace vexa
