#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <set>
#include <sstream>

#include "status/InterfaceAddresses.h"
#include "status/ProcParsers.h"
#include "util/MountTable.h"
#include "vexa/status/DiskStatus.h"
#include "vexa/status/NetworkStatus.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace devices_live_test {

using namespace std::chrono_literals;

std::string fileText(const char* path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class Samples : public NetworkDelegate, public DiskDelegate {
 public:
  void networkStatus(const nlohmann::json& services) override { network.push_back(services); }
  void diskDetails(const nlohmann::json& volumes) override { disks.push_back(volumes); }
  std::vector<nlohmann::json> network;
  std::vector<nlohmann::json> disks;
};

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

// The shared samplers report on their own timers, on the loop of the thread that made them.
TEST(DevicesLiveTest, SharedDiskAndNetworkSamplersReport) {
  auto samples = std::make_shared<Samples>();
  NetworkStatus::shared()->setDelegate(samples);
  DiskStatus::shared()->setDelegate(samples);
  EXPECT_TRUE(RunLoop::current().runUntil(
      [&] { return !samples->disks.empty() && !samples->network.empty(); }, 2500ms));
  NetworkStatus::shared()->setDelegate(nullptr);
  DiskStatus::shared()->setDelegate(nullptr);
  // The root file system is listed when it is a local disk file system.
  for (const auto& entry : MountTable::read("/proc/self/mountinfo")) {
    if (entry.mountPoint != "/" || entry.fsType != "ext4") continue;
    ASSERT_FALSE(samples->disks.empty());
    ASSERT_FALSE(samples->disks[0].empty());
    EXPECT_EQ(samples->disks[0][0]["disk_path"], "/");
    EXPECT_EQ(samples->disks[0][0]["disk_backups"], 0);
  }
}

}  // namespace devices_live_test
}  // namespace vexa
