// The power daemon over the bus, served by python-dbusmock's "upower" template on a private
// bus given to the code as the system bus.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ostream>

#include "status/DaemonPowerSources.h"
#include "status/MachineFiles.h"
#include "status/SysfsPowerSupplies.h"
#include "support/MockService.h"
#include "support/PrivateBus.h"
#include "vexa/status/BatteryStatus.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace u_power_bus_test {

using namespace std::chrono_literals;

constexpr const char* kDevices = "/org/freedesktop/UPower/devices/";

std::string laptop() { return std::string(VEXA_TEST_DATA_DIR) + "/machines/intel-laptop"; }

std::unique_ptr<PowerSources> laptopFiles() {
  return std::make_unique<SysfsPowerSupplies>(MachineFiles::underRoot(laptop()));
}

class UPowerBusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(bus_.ok());
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.address().c_str(), 1);
  }

  void startDaemon() {
    mock_ = std::make_unique<test::MockService>(bus_.address(), "upower", "org.freedesktop.UPower");
    ASSERT_TRUE(mock_->waitUntilServing());
  }
  void addBattery(double percent, int64_t secondsToEmpty) {
    ASSERT_TRUE(mock_->tell("/org/freedesktop/UPower", "AddDischargingBattery",
                            g_variant_new("(ssdx)", "bat0", "Battery", percent, secondsToEmpty)));
  }
  void addLinePower(bool online) {
    ASSERT_TRUE(mock_->tell("/org/freedesktop/UPower", "AddAC", g_variant_new("(ss)", "ac", "AC")));
    setProperty("ac", "Online", g_variant_new_boolean(online));
  }
  void setProperty(const std::string& device, const char* name, GVariant* value) {
    std::string error;
    EXPECT_TRUE(mock_->tell(
        "/org/freedesktop/UPower", "SetDeviceProperties",
        g_variant_new_parsed("(%o, {%s: %v})", (kDevices + device).c_str(), name, value), &error))
        << error;
  }
  // Replaces one of the daemon's methods with python code of the mock's.
  void replaceMethod(const char* name, const char* replyType, const char* code) {
    std::string error;
    ASSERT_TRUE(mock_->tell(
        "/org/freedesktop/UPower", "AddMethod",
        g_variant_new("(sssss)", "org.freedesktop.UPower", name, "", replyType, code), &error))
        << error;
  }
  std::unique_ptr<DaemonPowerSources> sources() {
    return std::make_unique<DaemonPowerSources>(PowerDaemon::system(), laptopFiles());
  }

  test::PrivateBus bus_;
  std::unique_ptr<test::MockService> mock_;
};

TEST_F(UPowerBusTest, ReadsTheDaemonsBatteryAndLinePower) {
  startDaemon();
  addLinePower(false);
  addBattery(30.0, 5400);
  const PowerSnapshot snapshot = sources()->read();
  EXPECT_EQ(snapshot.timeRemaining, 5400);
  ASSERT_EQ(snapshot.sources.size(), 1u);
  EXPECT_EQ(snapshot.sources[0]["Power Source State"], "Battery Power");
  EXPECT_EQ(snapshot.sources[0]["Current Capacity"], 30000000);  // 30 Wh of 100
  EXPECT_EQ(snapshot.sources[0]["Max Capacity"], 100000000);
  EXPECT_NE(snapshot, laptopFiles()->read());

  // Plugged in: on mains, whatever the battery's own time says.
  setProperty("ac", "Online", g_variant_new_boolean(TRUE));
  EXPECT_EQ(sources()->read().timeRemaining, -2);
}

TEST_F(UPowerBusTest, ChangedPropertiesAreReadAgain) {
  startDaemon();
  addBattery(30.0, 5400);
  struct Levels : BatteryDelegate {
    void batteryRemainingWithLeft(const std::string& text) override { left.push_back(text); }
    std::vector<std::string> left;
  };
  auto levels = std::make_shared<Levels>();
  auto status = BatteryStatus::withSources(sources(), 0);
  status->setDelegate(levels);
  status->checkForChange();
  EXPECT_EQ(status->currentPercent(), 30);
  setProperty("bat0", "Energy", g_variant_new_double(20.0));
  EXPECT_TRUE(RunLoop::current().runUntil([&] { return status->currentPercent() == 20; }, 10s));
  EXPECT_EQ(levels->left, std::vector<std::string>{"20%"});
}

TEST_F(UPowerBusTest, PropertiesOfTheWrongTypeAreLeftOut) {
  startDaemon();
  addBattery(42.0, 5400);
  setProperty("bat0", "Energy", g_variant_new_string("lots"));
  setProperty("bat0", "TimeToEmpty", g_variant_new_string("soon"));
  const PowerSnapshot snapshot = sources()->read();
  ASSERT_EQ(snapshot.sources.size(), 1u);
  // Without its energy the battery tells its percentage, and its time is still unknown.
  EXPECT_EQ(snapshot.sources[0]["Current Capacity"], 42);
  EXPECT_EQ(snapshot.sources[0]["Max Capacity"], 100);
  EXPECT_EQ(snapshot.timeRemaining, -1);
}

struct FailureCase {
  const char* name;
  bool daemon;            // the daemon runs at all
  const char* replyType;  // EnumerateDevices replaced with one of this reply type...
  const char* code;       // ...running this
};
void PrintTo(const FailureCase& c, std::ostream* os) { *os << c.name; }

class UPowerFailureTest : public UPowerBusTest,
                          public ::testing::WithParamInterface<FailureCase> {};

TEST_P(UPowerFailureTest, FallsBackToTheFilesPromptly) {
  if (GetParam().daemon) {
    startDaemon();
    addBattery(30.0, 5400);
    if (GetParam().code != nullptr)
      replaceMethod("EnumerateDevices", GetParam().replyType, GetParam().code);
  }
  auto read = sources();
  int announced = 0;
  read->follow([&] { ++announced; });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(read->read(), laptopFiles()->read());
  // Under the calls' own time-out: a bus error answers at once.
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
  // And again: a daemon that went away stays away without harm.
  EXPECT_EQ(read->read(), laptopFiles()->read());
  if (GetParam().daemon && GetParam().code != nullptr &&
      std::string(GetParam().code).find("_exit") != std::string::npos) {
    // Its name losing its owner is announced, so the battery is read again.
    EXPECT_TRUE(RunLoop::current().runUntil([&] { return announced > 0; }, 10s));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Failures, UPowerFailureTest,
    ::testing::Values(FailureCase{"NoDaemon", false, nullptr, nullptr},
                      FailureCase{"WrongReplyType", true, "s", "ret = 'devices'"},
                      FailureCase{"VanishesMidCall", true, "ao", "import os; os._exit(0)"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(UPowerNoBusTest, WithoutASystemBusTheFilesAreRead) {
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  EXPECT_EQ(PowerDaemon::system(), nullptr);
  DaemonPowerSources read(PowerDaemon::system(), laptopFiles());
  EXPECT_EQ(read.read(), laptopFiles()->read());
}

}  // namespace u_power_bus_test
}  // namespace vexa
