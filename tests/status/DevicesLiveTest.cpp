#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

#include "status/InterfaceAddresses.h"
#include "status/ProcParsers.h"
#include "vexa/status/NetworkStatus.h"

namespace vexa {
namespace devices_live_test {

std::string fileText(const char* path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// The kernel's own counters and addresses: every interface but loopback is booked, totals never
// go back, and the loopback address is there but not global.
TEST(DevicesLiveTest, NetworkTrafficOfThisMachine) {
  auto manage = NetManage::create("/");
  const auto first = manage->netStatsWithInterval(1.0);
  ASSERT_TRUE(first);
  std::set<std::string> expected;
  for (const auto& counters : parseNetDev(fileText("/proc/net/dev"))) {
    if (counters.name != "lo") expected.insert(counters.name);
  }
  std::set<std::string> booked;
  for (const auto& [name, record] : first->items()) booked.insert(name);
  EXPECT_EQ(booked, expected);
  const auto second = manage->netStatsWithInterval(0.5);
  for (const auto& [name, record] : second->items()) {
    if (!record.contains("total_in")) continue;
    EXPECT_GE(record["total_in"].get<uint64_t>(), (*first)[name]["total_in"].get<uint64_t>());
  }
  bool loopback = false;
  for (const auto& address : InterfaceAddresses::system()->list()) {
    if (address.interface == "lo" && address.address == "127.0.0.1") {
      loopback = true;
      EXPECT_FALSE(address.global);
      EXPECT_EQ(address.netmask, "255.0.0.0");
    }
  }
  EXPECT_TRUE(loopback);
}

}  // namespace devices_live_test
}  // namespace vexa
