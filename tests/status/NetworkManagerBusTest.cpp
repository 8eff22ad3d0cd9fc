// Network services from the network manager over the bus, served by python-dbusmock's
// "networkmanager" template on a private bus given to the code as the system bus. The template
// keeps no primary connection and no IPv4 configuration: the test adds both.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "status/InterfaceAddresses.h"
#include "status/MachineFiles.h"
#include "status/NetworkChanges.h"
#include "status/NetworkDaemon.h"
#include "support/MockService.h"
#include "support/PrivateBus.h"
#include "vexa/status/NetManage.h"
#include "vexa/status/NetPPP.h"
#include "vexa/status/NetworkStatus.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace network_manager_bus_test {

using namespace std::chrono_literals;

constexpr const char* kManager = "/org/freedesktop/NetworkManager";
constexpr const char* kManagerInterface = "org.freedesktop.NetworkManager";
constexpr const char* kActiveInterface = "org.freedesktop.NetworkManager.Connection.Active";
constexpr const char* kMock = "org.freedesktop.DBus.Mock";
constexpr const char* kOfficeUuid = "3f1c2e55-0d6b-4a57-9e55-7d2f3c1a9b10";
constexpr const char* kHomeUuid = "8a0e8f0c-52a4-4f0d-a6de-0c2b1e7f4d21";

std::string laptop() { return std::string(VEXA_TEST_DATA_DIR) + "/machines/intel-laptop"; }

class NoAddresses final : public InterfaceAddresses {
 public:
  std::vector<InterfaceAddress> list() override { return {}; }
};

// The laptop's files with the manager on the bus.
std::unique_ptr<NetManage> managedLaptop() {
  return std::make_unique<NetManage>(MachineFiles::underRoot(laptop()),
                                     std::make_unique<NoAddresses>(), NetPPP::create(laptop()),
                                     NetworkDaemon::system());
}

class NetworkManagerBusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(bus_.ok());
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.address().c_str(), 1);
    mock_ = std::make_unique<test::MockService>(bus_.address(), "networkmanager",
                                                "org.freedesktop.NetworkManager");
    ASSERT_TRUE(mock_->waitUntilServing());
  }

  // The object path a call of the mock answers ("(s)" or "(o)"); empty when it failed.
  std::string pathOf(const std::string& path, const char* interface, const char* method,
                     GVariant* parameters) {
    std::string error;
    GVariant* reply = mock_->call(path, interface, method, parameters, &error);
    EXPECT_NE(reply, nullptr) << method << ": " << error;
    if (reply == nullptr) return {};
    GVariant* answer = g_variant_get_child_value(reply, 0);
    std::string result = g_variant_get_string(answer, nullptr);
    g_variant_unref(answer);
    g_variant_unref(reply);
    return result;
  }
  void tell(const std::string& path, const char* method, GVariant* parameters) {
    std::string error;
    EXPECT_TRUE(mock_->tell(path, method, parameters, &error)) << method << ": " << error;
  }

  // An ethernet device on `interface` with an active connection; answers the connection's path.
  std::string connect(const char* name, const char* interface, const char* id, const char* uuid) {
    const std::string device =
        pathOf(kManager, kMock, "AddEthernetDevice",
               g_variant_new("(ssi)", (std::string(name) + "dev").c_str(), interface, 100));
    const std::string connection =
        pathOf("/org/freedesktop/NetworkManager/Settings",
               "org.freedesktop.NetworkManager.Settings", "AddConnection",
               g_variant_new_parsed("({'connection': {'id': <%s>, 'uuid': <%s>, "
                                    "'type': <'802-3-ethernet'>}},)",
                                    id, uuid));
    return pathOf(kManager, kMock, "AddActiveConnection",
                  g_variant_new_parsed("([%s], %s, '/', %s, uint32 2)", device.c_str(),
                                       connection.c_str(), name));
  }

  // Two connections, the second one primary.
  void homeAndOffice() {
    home_ = connect("home", "wlp0s20f3", "Home", kHomeUuid);
    office_ = connect("office", "enp0s31f6", "Office", kOfficeUuid);
    ASSERT_FALSE(home_.empty());
    ASSERT_FALSE(office_.empty());
    const char* config = "/org/freedesktop/NetworkManager/IP4Config/1";
    tell(kManager, "AddObject",
         g_variant_new_parsed(
             "(%s, 'org.freedesktop.NetworkManager.IP4Config', "
             "{'AddressData': <[{'address': <'192.168.5.20'>, 'prefix': <uint32 24>}, "
             "{'address': <'10.1.0.7'>, 'prefix': <uint32 16>}]>, "
             "'Gateway': <'192.168.5.1'>, "
             "'NameserverData': <[{'address': <'192.168.5.1'>}, {'address': <'9.9.9.9'>}]>}, "
             "@a(ssss) [])",
             config));
    tell(office_, "AddProperty",
         g_variant_new_parsed("(%s, 'Ip4Config', <%o>)", kActiveInterface, config));
    tell(kManager, "AddProperty",
         g_variant_new_parsed("(%s, 'PrimaryConnection', <%o>)", kManagerInterface,
                              office_.c_str()));
  }

  test::PrivateBus bus_;
  std::unique_ptr<test::MockService> mock_;
  std::string home_, office_;
};

TEST_F(NetworkManagerBusTest, ServicesAreTheActiveConnectionsPrimaryFirst) {
  homeAndOffice();
  auto manage = managedLaptop();
  const auto list = manage->queryInterfaceLists();
  ASSERT_EQ(list.size(), 2u) << list.dump();
  const auto& office = list[0];
  EXPECT_EQ(office["service_id"], kOfficeUuid);
  EXPECT_EQ(office["user_defind_name"], "Office");
  EXPECT_EQ(office["device_name"], "enp0s31f6");
  EXPECT_EQ(office["is_primary"], true);
  EXPECT_EQ(office["connection_type"], "Ethernet");
  EXPECT_EQ(office["ipv4_addresses"], nlohmann::json({"192.168.5.20", "10.1.0.7"}));
  EXPECT_EQ(office["ipv4_subnetmasks"], nlohmann::json({"255.255.255.0", "255.255.0.0"}));
  EXPECT_EQ(office["ipv4_router"], "192.168.5.1");
  EXPECT_EQ(office["ipv4_dns"], nlohmann::json({"192.168.5.1", "9.9.9.9"}));
  const auto& home = list[1];
  EXPECT_EQ(home["service_id"], kHomeUuid);
  EXPECT_EQ(home["user_defind_name"], "Home");
  EXPECT_EQ(home["is_primary"], false);
  EXPECT_FALSE(home.contains("ipv4_addresses"));  // no IPv4 configuration
  EXPECT_FALSE(home.contains("ipv4_dns"));

  EXPECT_EQ(manage->queryMainInterfaceName(), "enp0s31f6");
  EXPECT_EQ(manage->queryMainServiceID(), kOfficeUuid);
  EXPECT_EQ(manage->queryInterfaceNameWithServiceID(kHomeUuid), "wlp0s20f3");
  EXPECT_EQ(manage->queryServiceWithInterfaceName("enp0s31f6"), kOfficeUuid);
  EXPECT_EQ(manage->interfaceConfigWithName("primary")["service"], kOfficeUuid);
}

TEST_F(NetworkManagerBusTest, ChangesAnnouncedByTheManagerAreLookedAtAgain) {
  homeAndOffice();
  auto status = NetworkStatus::withManager(managedLaptop(), NetworkChanges::system());
  struct Last : NetworkDelegate {
    void networkStatus(const nlohmann::json& services) override { list = services; }
    nlohmann::json list;
  };
  auto last = std::make_shared<Last>();
  status->setDelegate(last);
  status->updateInfo();
  ASSERT_EQ(last->list.size(), 2u);
  EXPECT_EQ(last->list[0]["user_defind_name"], "Office");
  tell(kManager, "SetProperty",
       g_variant_new_parsed("(%s, %s, 'Id', <'Office upstairs'>)", office_.c_str(),
                            kActiveInterface));
  // Until the announcement is heard the services found stand.
  status->updateInfo();
  EXPECT_EQ(last->list[0]["user_defind_name"], "Office");
  EXPECT_TRUE(RunLoop::current().runUntil(
      [&] {
        status->updateInfo();
        return last->list.size() == 2 && last->list[0]["user_defind_name"] == "Office upstairs";
      },
      10s));
}

TEST_F(NetworkManagerBusTest, WithoutTheManagerTheFilesTell) {
  homeAndOffice();
  auto manage = managedLaptop();
  mock_.reset();  // the manager stops
  const auto list = manage->queryInterfaceLists();
  ASSERT_FALSE(list.empty());
  EXPECT_EQ(list[0]["service_id"], "wlp0s20f3");  // the laptop's own default route
}

}  // namespace network_manager_bus_test
}  // namespace vexa
