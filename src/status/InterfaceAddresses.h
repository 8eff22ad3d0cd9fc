#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vexa {

// One address of a network interface, in text form.
struct InterfaceAddress {
  std::string interface;
  bool ipv6 = false;
  std::string address;  // "192.168.1.20", "fe80::1"
  std::string netmask;  // "255.255.255.0"; for IPv6 as written ("ffff:ffff:ffff:ffff::")
  bool global = true;   // false for loopback and link-local addresses
};

// The addresses the machine's interfaces hold now.
class InterfaceAddresses {
 public:
  virtual ~InterfaceAddresses() = default;
  // Every IPv4 and IPv6 address, in the kernel's order; empty when they cannot be read.
  virtual std::vector<InterfaceAddress> list() = 0;

  // The running machine's.
  static std::unique_ptr<InterfaceAddresses> system();
};

}  // namespace vexa
