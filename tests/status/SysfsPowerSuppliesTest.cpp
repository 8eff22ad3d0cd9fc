#include "status/SysfsPowerSupplies.h"

#include <gtest/gtest.h>

#include <ostream>
#include <sstream>

#include "status/MachineFiles.h"

namespace vexa {
namespace sysfs_power_supplies_test {

using Supply = SysfsPowerSupplies::Supply;

// A supply from "file=value" words ("power_now=" is an empty file).
Supply supply(const std::string& files) {
  Supply found;
  std::istringstream words(files);
  for (std::string word; words >> word;) {
    const size_t equals = word.find('=');
    found[word.substr(0, equals)] = word.substr(equals + 1);
  }
  return found;
}

const Supply kAcOffline = supply("name=AC type=Mains online=0");
const Supply kAcOnline = supply("name=AC type=Mains online=1");

Supply energyBattery(const std::string& status, const std::string& power) {
  return supply(
      "name=BAT0 type=Battery energy_now=28500000 energy_full=50000000 "
      "energy_full_design=57000000 voltage_now=11400000 voltage_min_design=11400000 "
      "cycle_count=312 status=" +
      status + " power_now=" + power);
}

struct SummaryCase {
  const char* name;
  std::vector<Supply> supplies;
  double timeRemaining;
  // Keys of the one source that must read as given; null: no source at all.
  nlohmann::json source;
  // Keys of the battery's own figures that must read as given.
  nlohmann::json properties;
};
void PrintTo(const SummaryCase& c, std::ostream* os) { *os << c.name; }

class PowerSupplySummaryTest : public ::testing::TestWithParam<SummaryCase> {};

TEST_P(PowerSupplySummaryTest, DescribesTheBatteries) {
  const PowerSnapshot snapshot = SysfsPowerSupplies::summarize(GetParam().supplies);
  EXPECT_DOUBLE_EQ(snapshot.timeRemaining, GetParam().timeRemaining);
  if (GetParam().source.is_null()) {
    EXPECT_TRUE(snapshot.sources.empty());
    EXPECT_FALSE(snapshot.batteryInfo);
    return;
  }
  ASSERT_EQ(snapshot.sources.size(), 1u);
  for (const auto& [key, value] : GetParam().source.items()) {
    EXPECT_EQ(snapshot.sources[0].value(key, nlohmann::json()), value) << key;
  }
  for (const auto& [key, value] : GetParam().properties.items()) {
    EXPECT_EQ(snapshot.batteryProperties.value(key, nlohmann::json()), value) << key;
  }
}

const nlohmann::json kNone = nlohmann::json::object();

INSTANTIATE_TEST_SUITE_P(
    Supplies, PowerSupplySummaryTest,
    ::testing::Values(
        SummaryCase{"LaptopOnBattery",
                    {kAcOffline, energyBattery("Discharging", "9500000")},
                    10800,
                    R"({"Power Source State": "Battery Power", "Is Charging": false,
                "Current Capacity": 28500000, "Max Capacity": 50000000, "BatteryHealth": "Good",
                "Time to Full Charge": 0})"_json,
                    R"({"CurrentCapacity": 2500, "MaxCapacity": 4385, "DesignCapacity": 5000,
                "Voltage": 11400, "Amperage": -833, "CycleCount": 312})"_json},
        SummaryCase{"ChargingOnMains",
                    {kAcOnline, energyBattery("Charging", "9500000")},
                    -2,
                    R"({"Power Source State": "AC Power", "Is Charging": true,
                "Time to Full Charge": 135})"_json,
                    R"({"Amperage": 833})"_json},
        SummaryCase{"ZeroRateIsCalculating",
                    {kAcOffline, energyBattery("Discharging", "0")},
                    -1,
                    R"({"Power Source State": "Battery Power"})"_json,
                    kNone},
        SummaryCase{"NearZeroRateIsCalculating",
                    {kAcOffline, energyBattery("Discharging", "100000")},
                    -1,
                    R"({"Current Capacity": 28500000})"_json,
                    kNone},
        SummaryCase{"EnergyNeverPairsWithCurrent",
                    {kAcOffline, supply("type=Battery status=Discharging energy_now=1000 "
                                        "energy_full=2000 current_now=500")},
                    -1,
                    R"({"Current Capacity": 1000})"_json,
                    kNone},
        SummaryCase{"ChargeWithNegativeCurrent",
                    {kAcOffline, supply("type=Battery status=Discharging charge_now=2000000 "
                                        "charge_full=4000000 charge_full_design=5100000 "
                                        "current_now=-1000000 voltage_now=7600000 temp=305")},
                    7200,
                    R"({"Current Capacity": 2000000, "BatteryHealth": "Poor"})"_json,
                    R"({"CurrentCapacity": 2000, "Amperage": -1000, "Voltage": 7600,
                        "Temperature": 3050})"_json},
        SummaryCase{"CapacityOnly",
                    {kAcOffline, supply("type=Battery status=Unknown capacity=64 health=Unknown")},
                    -1,
                    R"({"Current Capacity": 64, "Max Capacity": 100, "BatteryHealth": null})"_json,
                    kNone},
        SummaryCase{"HealthFromTheDriver",
                    {kAcOnline, supply("type=Battery status=Full capacity=100 health=Overheat")},
                    -2,
                    R"({"BatteryHealth": "Overheat", "Is Charging": false})"_json,
                    kNone},
        SummaryCase{"TwoBatteriesOneSource",
                    {kAcOffline, energyBattery("Discharging", "9500000"),
                     energyBattery("Discharging", "9500000")},
                    10800,
                    R"({"Current Capacity": 57000000, "Max Capacity": 100000000})"_json,
                    kNone},
        SummaryCase{"NoMainsSupplyDischarging",
                    {energyBattery("Discharging", "19000000")},
                    5400,
                    R"({"Power Source State": "Battery Power"})"_json,
                    kNone},
        SummaryCase{"GarbageFigures",
                    {kAcOffline, supply("type=Battery status=Discharging energy_now=x "
                                        "energy_full=-9223372036854775808 power_now= "
                                        "capacity=99999999999999999999 "
                                        "temp=-9223372036854775808")},
                    -1,
                    R"({"Is Present": true, "Current Capacity": null})"_json,
                    R"({"Temperature": null})"_json},
        SummaryCase{"MouseIsNotTheMachinesBattery",
                    {supply("name=hidpp_battery_0 type=Battery scope=Device status=Discharging "
                            "capacity=40")},
                    -2,
                    nullptr,
                    nullptr},
        SummaryCase{"Desktop", {kAcOnline}, -2, nullptr, nullptr},
        SummaryCase{"Nothing", {}, -2, nullptr, nullptr}),
    [](const auto& param) { return std::string(param.param.name); });

std::string machine(const std::string& name) {
  return std::string(VEXA_TEST_DATA_DIR) + "/machines/" + name;
}

TEST(SysfsPowerSuppliesTest, ReadsTheFixtureMachinesSupplies) {
  SysfsPowerSupplies supplies(MachineFiles::underRoot(machine("intel-laptop")));
  const auto found = supplies.supplies();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].at("name"), "AC");
  EXPECT_EQ(found[1].at("status"), "Discharging");  // the new line is gone
  const auto snapshot = supplies.read();
  EXPECT_DOUBLE_EQ(snapshot.timeRemaining, 10800);
  ASSERT_TRUE(snapshot.batteryInfo);
  EXPECT_EQ((*snapshot.batteryInfo)[0]["Current"], 2500);
  // A desktop with a mouse has no battery; a machine without the class has no supply.
  SysfsPowerSupplies desktop(MachineFiles::underRoot(machine("amd-desktop")));
  EXPECT_EQ(desktop.supplies().size(), 1u);
  EXPECT_FALSE(desktop.read().batteryInfo);
  EXPECT_TRUE(SysfsPowerSupplies(MachineFiles::underRoot(machine("vm-2cpu"))).supplies().empty());
}

}  // namespace sysfs_power_supplies_test
}  // namespace vexa
