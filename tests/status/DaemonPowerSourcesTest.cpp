#include "status/DaemonPowerSources.h"

#include <gtest/gtest.h>

#include <ostream>

namespace vexa {
namespace daemon_power_sources_test {

constexpr uint32_t kDischarging = PowerDevice::kDischarging;
constexpr uint32_t kCharging = PowerDevice::kCharging;

// A system battery at `energy` of `full` Wh, with the daemon's time to empty when given.
PowerDevice battery(double energy, double full, std::optional<int64_t> timeToEmpty = {},
                    uint32_t state = kDischarging) {
  PowerDevice device;
  device.path = "/bat";
  device.kind = PowerDevice::Kind::Battery;
  device.present = true;
  device.state = state;
  device.energy = energy;
  device.energyFull = full;
  device.percentage = 100.0 * energy / full;
  device.timeToEmpty = timeToEmpty;
  return device;
}

PowerDevice linePower(bool online) {
  PowerDevice device;
  device.path = "/ac";
  device.kind = PowerDevice::Kind::LinePower;
  device.online = online;
  return device;
}

template <typename Change>
PowerDevice with(PowerDevice device, Change change) {
  change(device);
  return device;
}

struct DaemonCase {
  const char* name;
  PowerDaemon::Devices devices;
  double timeRemaining;
  nlohmann::json source;  // the keys to compare; empty: no source at all
};
void PrintTo(const DaemonCase& c, std::ostream* os) { *os << c.name; }

class DaemonSummaryTest : public ::testing::TestWithParam<DaemonCase> {};

TEST_P(DaemonSummaryTest, ReadsLikeTheKernelsSuppliesWithTheDaemonsTimes) {
  const PowerSnapshot snapshot = DaemonPowerSources::summarize(GetParam().devices);
  EXPECT_EQ(snapshot.timeRemaining, GetParam().timeRemaining);
  if (GetParam().source.empty()) {
    EXPECT_TRUE(snapshot.sources.empty());
    EXPECT_FALSE(snapshot.batteryInfo);
    return;
  }
  ASSERT_EQ(snapshot.sources.size(), 1u);
  for (const auto& [key, value] : GetParam().source.items()) {
    EXPECT_EQ(snapshot.sources[0].value(key, nlohmann::json()), value) << key;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Devices, DaemonSummaryTest,
    ::testing::Values(
        DaemonCase{"NoBattery", {{linePower(true)}, {}}, -2, {}},
        DaemonCase{"OnlyAMouse",
                   {{with(battery(1, 2), [](auto& d) { d.powerSupply = false; })}, {}},
                   -2,
                   {}},
        DaemonCase{"DischargingWithTheDaemonsTime",
                   {{linePower(false), battery(30, 60, 5700)}, {}},
                   5700,
                   R"({"Power Source State": "Battery Power", "Current Capacity": 30000000,
                       "Max Capacity": 60000000, "Is Charging": false})"_json},
        // 0 is "not known yet"; with a rate the figures tell (30 Wh at 10 W: 3 hours).
        DaemonCase{"UnknownTimeFallsBackToTheRate",
                   {{with(battery(30, 60, 0), [](auto& d) { d.energyRate = 10.0; })}, {}},
                   10800,
                   R"({"Power Source State": "Battery Power"})"_json},
        DaemonCase{"UnknownTimeAndNoRateIsCalculating",
                   {{battery(30, 60, 0)}, {}},
                   -1,
                   R"({"Is Charging": false})"_json},
        DaemonCase{"ChargingOnMainsInMinutes",
                   {{linePower(true),
                     with(battery(30, 60, {}, kCharging), [](auto& d) { d.timeToFull = 3725; })},
                    {}},
                   -2,
                   R"({"Power Source State": "AC Power", "Is Charging": true,
                       "Time to Full Charge": 62})"_json},
        // Two batteries: only the daemon's summary has a time for both.
        DaemonCase{"SummaryTimeForTwoBatteries",
                   {{battery(10, 50, 100), battery(20, 50, 200)}, battery(30, 100, 4321)},
                   4321,
                   R"({"Current Capacity": 30000000, "Max Capacity": 100000000})"_json},
        DaemonCase{"TwoBatteriesWithoutSummaryAreCalculating",
                   {{battery(10, 50, 100), battery(20, 50, 200)}, {}},
                   -1,
                   R"({"Power Source State": "Battery Power"})"_json},
        // Figures the daemon did not give leave the percentage to tell the charge.
        DaemonCase{"PercentageWithoutEnergy",
                   {{with(battery(30, 60),
                          [](auto& d) {
                            d.energy.reset();
                            d.percentage = 42.4;
                          })},
                    {}},
                   -1,
                   R"({"Current Capacity": 42, "Max Capacity": 100})"_json},
        DaemonCase{"NotANumber",
                   {{with(battery(30, 60),
                          [](auto& d) {
                            d.energyFull = std::nan("");
                            d.percentage = 7;
                          })},
                    {}},
                   -1,
                   R"({"Current Capacity": 7})"_json}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(DaemonSummaryTest, ElectricalFiguresInTheBatterysUnits) {
  PowerDaemon::Devices devices{{with(battery(44.4, 55.5),
                                     [](auto& d) {
                                       d.energyRate = 11.1;
                                       d.voltage = 11.1;
                                       d.temperature = 30.5;
                                       d.chargeCycles = 120;
                                       d.energyFullDesign = 60.0;
                                     })},
                               {}};
  const PowerSnapshot snapshot = DaemonPowerSources::summarize(devices);
  EXPECT_EQ(snapshot.batteryProperties.value("Amperage", 0), -1000);
  EXPECT_EQ(snapshot.batteryProperties.value("Voltage", 0), 11100);
  EXPECT_EQ(snapshot.batteryProperties.value("CurrentCapacity", 0), 4000);
  EXPECT_EQ(snapshot.batteryProperties.value("Temperature", 0), 3050);
  EXPECT_EQ(snapshot.batteryProperties.value("CycleCount", 0), 120);
  EXPECT_EQ(snapshot.sources[0].value("BatteryHealth", ""), "Good");  // 55.5 of 60 Wh
}

}  // namespace daemon_power_sources_test
}  // namespace vexa
