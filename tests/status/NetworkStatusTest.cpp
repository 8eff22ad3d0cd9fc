#include "vexa/status/NetworkStatus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <ostream>

#include "status/InterfaceAddresses.h"
#include "status/MachineFiles.h"
#include "status/NetworkChanges.h"
#include "status/ProcParsers.h"
#include "status/TrafficBook.h"
#include "support/TempDir.h"

namespace vexa {
namespace network_status_test {

constexpr uint64_t k4G = uint64_t{1} << 32U;

struct TrafficCase {
  const char* name;
  std::vector<InterfaceCounters> before;
  std::vector<InterfaceCounters> after;
  double interval;
  nlohmann::json expected;  // the record of "eth0" after both readings
};
void PrintTo(const TrafficCase& c, std::ostream* os) { *os << c.name; }

class TrafficBookTest : public ::testing::TestWithParam<TrafficCase> {};

TEST_P(TrafficBookTest, BooksTheSecondReading) {
  TrafficBook book;
  book.book(GetParam().before, 1.0);
  const auto records = book.book(GetParam().after, GetParam().interval);
  EXPECT_EQ(records.value("eth0", nlohmann::json()), GetParam().expected);
}

nlohmann::json full(uint32_t in, uint32_t out, uint64_t totalIn, uint64_t totalOut, uint64_t down,
                    uint64_t up, double peak) {
  return {{"if_in", in},           {"if_out", out},          {"total_in", totalIn},
          {"total_out", totalOut}, {"downlink_speed", down}, {"uplink_speed", up},
          {"peak_speek", peak}};
}

INSTANTIATE_TEST_SUITE_P(
    Readings, TrafficBookTest,
    ::testing::Values(TrafficCase{"Forward",
                                  {{"eth0", 1000, 500, 2}},
                                  {{"eth0", 3000, 700, 2}},
                                  2.0,
                                  full(3000, 700, 3000, 700, 2000, 200, 1000.0)},
                      TrafficCase{"LowBitsWrapBy396",
                                  {{"eth0", 4294967000, 10, 2}},
                                  {{"eth0", k4G + 100, 10, 2}},
                                  1.0,
                                  full(100, 10, 4294967396, 10, 396, 0, 396.0)},
                      TrafficCase{"FirstReadingHasNoSpeeds",
                                  {},
                                  {{"eth0", 5000, 6000, 2}},
                                  1.0,
                                  TrafficBook::first(5000, 6000)},
                      TrafficCase{"ZeroIntervalKeepsPeak",
                                  {{"eth0", 0, 0, 2}},
                                  {{"eth0", 800, 0, 2}},
                                  0.0,
                                  full(800, 0, 800, 0, 800, 0, 0.0)},
                      TrafficCase{"RecreatedLinkStartsOver",
                                  {{"eth0", 266, 266, 7}},
                                  {{"eth0", 0, 0, 8}},
                                  1.0,
                                  TrafficBook::first(0, 0)},
                      TrafficCase{"CounterWentBackStartsOver",
                                  {{"eth0", k4G + 5000, 9000, 2}},
                                  {{"eth0", 4000, 9000, 2}},
                                  1.0,
                                  TrafficBook::first(4000, 9000)},
                      TrafficCase{"LinkDownStartsOver",
                                  {{"eth0", 100, 100, 2}},
                                  {{"eth0", 300, 300, 2, false}},
                                  1.0,
                                  TrafficBook::first(300, 300)}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(TrafficBookTest, PeakIsTheHighestRateSoFar) {
  TrafficBook book;
  book.book({{"eth0", 0, 0, 2}}, 1.0);
  book.book({{"eth0", 4000, 0, 2}}, 2.0);
  const auto records = book.book({{"eth0", 4100, 0, 2}}, 1.0);
  EXPECT_EQ(records["eth0"]["peak_speek"], 2000.0);
  EXPECT_EQ(records["eth0"]["downlink_speed"], 100u);
  // An interface missing from a reading is forgotten; when it returns it starts over.
  book.book({}, 1.0);
  EXPECT_EQ(book.book({{"eth0", 4200, 0, 2}}, 1.0)["eth0"], TrafficBook::first(4200, 0));
}

TEST(TrafficBookTest, LinksWhoseNamesAreNotTextAreLeftOut) {
  // The kernel takes any bytes but "/", ":", blanks and NUL in a link's name.
  TrafficBook book;
  const auto records =
      book.book({{"eth0", 1, 1, 2}, {"\xd5x", 1, 1, 3}, {std::string("a\0\xff", 3), 1, 1, 4}}, 1.0);
  EXPECT_EQ(records.size(), 1u);
  EXPECT_TRUE(records.contains("eth0"));
  EXPECT_NO_THROW((void)records.dump());
}

struct NetDevCase {
  const char* name;
  const char* text;
  std::vector<std::string> parsed;  // "name rx tx"
};
void PrintTo(const NetDevCase& c, std::ostream* os) { *os << c.name; }

class NetDevParseTest : public ::testing::TestWithParam<NetDevCase> {};

TEST_P(NetDevParseTest, KeepsOnlyWholeLines) {
  std::vector<std::string> got;
  for (const auto& c : parseNetDev(GetParam().text)) {
    got.push_back(c.name + " " + std::to_string(c.receivedBytes) + " " +
                  std::to_string(c.sentBytes));
  }
  EXPECT_EQ(got, GetParam().parsed);
}

INSTANTIATE_TEST_SUITE_P(
    Tables, NetDevParseTest,
    ::testing::Values(
        NetDevCase{
            "Headers", "Inter-|   Receive |  Transmit\n face |bytes packets|bytes packets\n", {}},
        NetDevCase{"NameRunsIntoCounter",
                   "eth0:18446744073709551615 1 0 0 0 0 0 0 77 1 0 0 0 0 0 0\n",
                   {"eth0 18446744073709551615 77"}},
        NetDevCase{"Ragged",
                   "  eth0: 1 2 3\n"
                   "  eth1: 10 0 0 0 0 0 0 0 20 0 0 0 0 0 0 0\n"
                   "  eth2: x 0 0 0 0 0 0 0 20 0 0 0 0 0 0 0\n"
                   "  : 10 0 0 0 0 0 0 0 20 0 0 0 0 0 0 0\n"
                   "  eth3: 10 0 0 0 0 0 0 0 99999999999999999999 0 0 0 0 0 0 0",
                   {"eth1 10 20"}},
        NetDevCase{"Empty", "", {}}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(NetParsersTest, DefaultRoutesLowestMetricFirst) {
  const auto routes = parseDefaultRoutes(
      "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\n"
      "wlan0\t00000000\t0101A8C0\t0003\t0\t0\t600\t00000000\t0\t0\t0\n"
      "eth0\t00000000\t FE01A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
      "eth0\t0001A8C0\t00000000\t0001\t0\t0\t100\t00FFFFFF\t0\t0\t0\n"
      "wg0\t00000000\t00000000\t0001\t0\t0\t50\t00000000\t0\t0\t0\n"
      "bad\t00000000\tZZZZ\t0003\t0\t0\t1\t00000000\n");
  ASSERT_EQ(routes.size(), 3u);
  EXPECT_EQ(routes[0].interface, "wg0");
  EXPECT_EQ(routes[0].gateway, "");
  EXPECT_EQ(routes[1].interface, "eth0");
  EXPECT_EQ(routes[1].gateway, "192.168.1.254");
  EXPECT_EQ(routes[2].gateway, "192.168.1.1");
  EXPECT_EQ(parseResolvConf("# c\nnameserver 1.1.1.1\nnameserver\n  nameserver ::1 x\nsearch a"),
            (std::vector<std::string>{"1.1.1.1", "::1"}));
}

class FixedAddresses : public InterfaceAddresses {
 public:
  std::vector<InterfaceAddress> list() override {
    return {{"wlp0s20f3", false, "192.168.1.20", "255.255.255.0", true},
            {"wlp0s20f3", true, "fe80::1", "ffff:ffff:ffff:ffff::", false},
            {"docker0", false, "172.17.0.1", "255.255.0.0", true},
            {"ppp0", false, "10.64.64.64", "255.255.255.255", true},
            {"lo", false, "127.0.0.1", "255.0.0.0", false}};
  }
};

std::string laptop() { return std::string(VEXA_TEST_DATA_DIR) + "/machines/intel-laptop"; }

std::unique_ptr<NetManage> laptopManager() {
  return std::make_unique<NetManage>(MachineFiles::underRoot(laptop()),
                                     std::make_unique<FixedAddresses>(), NetPPP::create(laptop()));
}

TEST(NetManageFixtureTest, ListsServicesPrimaryFirst) {
  auto manage = laptopManager();
  EXPECT_EQ(manage->queryMainServiceID(), "wlp0s20f3");
  const auto list = manage->queryInterfaceLists();
  std::vector<std::string> ids;
  for (const auto& record : list) ids.push_back(record["service_id"]);
  EXPECT_EQ(ids, (std::vector<std::string>{"wlp0s20f3", "docker0", "enp0s31f6", "ppp0"}));
  const auto& wifi = list[0];
  EXPECT_EQ(wifi["is_primary"], true);
  EXPECT_EQ(wifi["connection_type"], "IEEE80211");
  EXPECT_EQ(wifi["user_defind_name"], "Wi-Fi");
  EXPECT_EQ(wifi["ipv4_addresses"], nlohmann::json({"192.168.1.20"}));
  EXPECT_EQ(wifi["ipv4_subnetmasks"], nlohmann::json({"255.255.255.0"}));
  EXPECT_EQ(wifi["ipv4_router"], "192.168.1.1");
  EXPECT_EQ(wifi["ipv4_dns"], nlohmann::json({"192.168.1.1", "2001:db8::1"}));
  EXPECT_EQ(wifi["ipv6_addresses"], nlohmann::json({"fe80::1"}));
  EXPECT_EQ(wifi["linkactive_status"], true);
  EXPECT_EQ(wifi["link_speed"], 10000000u);  // Wi-Fi reports no speed file
  EXPECT_EQ(list[1]["connection_type"], "bridge");
  EXPECT_FALSE(list[1].contains("link_speed"));
  EXPECT_FALSE(list[1].contains("ipv4_dns"));
  const auto& wired = list[2];
  EXPECT_EQ(wired["connection_type"], "Ethernet");
  EXPECT_EQ(wired["linkactive_status"], false);
  EXPECT_EQ(wired["link_speed"], 10000000u);  // speed -1 while unplugged
  const auto& ppp = list[3];
  EXPECT_EQ(ppp["connection_type"], "PPP");
  EXPECT_EQ(ppp["device_ppp_name"], "ppp0");
  EXPECT_EQ(ppp["ppp_status_info"]["status"], 8u);
  EXPECT_EQ(ppp["ppp_status_info"]["inBytes"], 100u);  // the low 32 bits
  EXPECT_EQ(manage->interfaceConfigWithName("primary"), nlohmann::json({{"name", "primary"},
                                                                        {"service", "wlp0s20f3"},
                                                                        {"statname", "wlp0s20f3"},
                                                                        {"speed", 10000000u},
                                                                        {"interfaceup", true}}));
  EXPECT_FALSE(manage->isUpWithinterfaceName("enp0s31f6"));
  EXPECT_FALSE(manage->isUpWithinterfaceName("ppp1"));
  EXPECT_EQ(NetPPP::create(laptop())->queryPPPconfdLinkCount(), 2);
}

TEST(NetManageFixtureTest, TrafficLeavesOutLoopbackAndIdlePpp) {
  auto manage = laptopManager();
  const auto stats = manage->netStatsWithInterval(1.0);
  ASSERT_TRUE(stats);
  std::vector<std::string> names;
  for (const auto& [name, record] : stats->items()) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"docker0", "enp0s31f6", "ppp0", "wlp0s20f3"}));
  EXPECT_EQ((*stats)["wlp0s20f3"], TrafficBook::first(1073741824, 734003200));
  // Nothing moved: the second reading books zero traffic.
  const auto again = manage->netStatsWithInterval(1.0);
  EXPECT_EQ((*again)["wlp0s20f3"]["downlink_speed"], 0u);
  EXPECT_EQ((*again)["wlp0s20f3"]["total_in"], 1073741824u);
  // The unplugged Ethernet link is down: always a first record.
  EXPECT_FALSE((*again)["enp0s31f6"].contains("downlink_speed"));
}

class RecordingNetwork : public NetworkDelegate {
 public:
  void networkStatus(const nlohmann::json& services) override { calls.push_back(services); }
  std::vector<nlohmann::json> calls;
};

TEST(NetworkStatusFixtureTest, OneCallPerServiceWithTheListSoFar) {
  auto status = NetworkStatus::withManager(laptopManager());
  auto recorder = std::make_shared<RecordingNetwork>();
  status->setDelegate(recorder);
  status->updateInfo();
  ASSERT_EQ(recorder->calls.size(), 4u);
  EXPECT_TRUE(recorder->calls[0][0].contains("throughput_details"));
  EXPECT_FALSE(recorder->calls[0][1].contains("is_active_interface"));
  const auto& last = recorder->calls.back();
  EXPECT_EQ(last[0]["is_active_interface"], true);
  EXPECT_EQ(last[2]["is_active_interface"], false);
  EXPECT_EQ(last[0]["throughput_details"]["downlink_speed"], 0u);
  EXPECT_TRUE(last[0].contains("sampling_interval"));
  EXPECT_EQ(last[3]["throughput_details"]["if_in"], 100u);
  ASSERT_TRUE(status->preferredInterfaceInfo());
  EXPECT_EQ((*status->preferredInterfaceInfo())["service"], "wlp0s20f3");
}

struct HistoryCase {
  int32_t keep;
  std::vector<size_t> sizes;  // after each of five samples
};

class NetworkHistoryTest : public ::testing::TestWithParam<HistoryCase> {};

TEST_P(NetworkHistoryTest, KeepsTheCountOrOneMore) {
  auto status = NetworkStatus::withManager(laptopManager());
  status->setStayNetHistoryCount(GetParam().keep);
  std::vector<size_t> sizes;
  for (int i = 0; i < 5; ++i) {
    status->updateInfo();
    sizes.push_back(status->netHistoryData().size());
    EXPECT_EQ(status->netHistoryIntervals().size(), sizes.back());
  }
  EXPECT_EQ(sizes, GetParam().sizes);
}

INSTANTIATE_TEST_SUITE_P(Counts, NetworkHistoryTest,
                         ::testing::Values(HistoryCase{1, {1, 1, 1, 1, 1}},
                                           HistoryCase{0, {1, 1, 1, 1, 1}},
                                           HistoryCase{2, {1, 2, 3, 2, 3}},
                                           HistoryCase{3, {1, 2, 3, 4, 3}}));

// Changes announced by the test; `starts` false stands for a machine where none can be heard.
class ToldChanges final : public NetworkChanges {
 public:
  ToldChanges(bool starts, std::function<void()>* tell) : starts_(starts), tell_(tell) {}
  bool start(std::function<void()> changed) override {
    if (starts_) *tell_ = std::move(changed);
    return starts_;
  }

 private:
  bool starts_;
  std::function<void()>* tell_;
};

struct ChangesCase {
  const char* name;
  bool heard;  // changes can be heard
  // The primary service after the default route moves to docker0, before and after the change
  // is announced.
  const char* beforeTold;
  const char* afterTold;
};
void PrintTo(const ChangesCase& c, std::ostream* os) { *os << c.name; }

class NetworkChangesTest : public ::testing::TestWithParam<ChangesCase> {};

TEST_P(NetworkChangesTest, ServicesLastUntilAChangeIsAnnounced) {
  test::TempDir machine;
  std::filesystem::copy(laptop(), machine.path(), std::filesystem::copy_options::recursive);
  std::function<void()> tell;
  auto status = NetworkStatus::withManager(
      std::make_unique<NetManage>(MachineFiles::underRoot(machine.path()),
                                  std::make_unique<FixedAddresses>(), NetPPP::create(laptop())),
      std::make_unique<ToldChanges>(GetParam().heard, &tell));
  auto recorder = std::make_shared<RecordingNetwork>();
  status->setDelegate(recorder);
  const auto primary = [&] {
    recorder->calls.clear();
    status->updateInfo();
    return recorder->calls.empty() ? std::string()
                                   : recorder->calls.back()[0].value("device_name", "");
  };
  EXPECT_EQ(primary(), "wlp0s20f3");
  machine.write(
      "proc/net/route",
      "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
      "docker0\t00000000\t010011AC\t0003\t0\t0\t0\t00000000\t0\t0\t0\n");
  EXPECT_EQ(primary(), GetParam().beforeTold);
  if (tell) tell();
  EXPECT_EQ(primary(), GetParam().afterTold);
  // Traffic is booked at every sample either way.
  EXPECT_EQ(status->netHistoryData().size(), 1u);
  EXPECT_TRUE(status->netHistoryData().back().contains("docker0"));
}

INSTANTIATE_TEST_SUITE_P(Sources, NetworkChangesTest,
                         ::testing::Values(ChangesCase{"heard", true, "wlp0s20f3", "docker0"},
                                           ChangesCase{"unheard", false, "docker0", "docker0"}),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace network_status_test
}  // namespace vexa
