#include "status/DaemonPowerSources.h"

#include <gtest/gtest.h>

#include <ostream>

namespace vexa {
namespace daemon_power_sources_test {

PowerDevice battery(uint32_t state, double energy, double full) {
  PowerDevice device;
  device.path = "/bat";
  device.kind = PowerDevice::Kind::Battery;
  device.present = true;
  device.state = state;
  device.energy = energy;
  device.energyFull = full;
  device.percentage = 100.0 * energy / full;
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

constexpr uint32_t kDischarging = PowerDevice::kDischarging;
constexpr uint32_t kCharging = PowerDevice::kCharging;

INSTANTIATE_TEST_SUITE_P(
    Devices, DaemonSummaryTest,
    ::testing::Values(
        DaemonCase{"NoBattery", {{linePower(true)}, {}}, -2, {}},
        DaemonCase{
            "OnlyAMouse",
            {{with(battery(kDischarging, 1, 2), [](auto& d) { d.powerSupply = false; })}, {}},
            -2,
            {}},
        DaemonCase{"DischargingWithTheDaemonsTime",
                   {{linePower(false),
                     with(battery(kDischarging, 30, 60), [](auto& d) { d.timeToEmpty = 5700; })},
                    {}},
                   5700,
                   {{"Power Source State", "Battery Power"},
                    {"Current Capacity", 30000000},
                    {"Max Capacity", 60000000},
                    {"Is Charging", false}}},
        // 0 is "not known yet"; with a rate the figures tell (30 Wh at 10 W: 3 hours).
        DaemonCase{"UnknownTimeFallsBackToTheRate",
                   {{with(battery(kDischarging, 30, 60),
                          [](auto& d) {
                            d.timeToEmpty = 0;
                            d.energyRate = 10.0;
                          })},
                    {}},
                   10800,
                   {{"Power Source State", "Battery Power"}}},
        DaemonCase{"UnknownTimeAndNoRateIsCalculating",
                   {{with(battery(kDischarging, 30, 60), [](auto& d) { d.timeToEmpty = 0; })}, {}},
                   -1,
                   {{"Is Charging", false}}},
        DaemonCase{"ChargingOnMainsInMinutes",
                   {{linePower(true),
                     with(battery(kCharging, 30, 60), [](auto& d) { d.timeToFull = 3725; })},
                    {}},
                   -2,
                   {{"Power Source State", "AC Power"},
                    {"Is Charging", true},
                    {"Time to Full Charge", 62}}},
        // Two batteries: only the daemon's summary has a time for both.
        DaemonCase{"SummaryTimeForTwoBatteries",
                   {{with(battery(kDischarging, 10, 50), [](auto& d) { d.timeToEmpty = 100; }),
                     with(battery(kDischarging, 20, 50), [](auto& d) { d.timeToEmpty = 200; })},
                    with(battery(kDischarging, 30, 100), [](auto& d) { d.timeToEmpty = 4321; })},
                   4321,
                   {{"Current Capacity", 30000000}, {"Max Capacity", 100000000}}},
        DaemonCase{"TwoBatteriesWithoutSummaryAreCalculating",
                   {{with(battery(kDischarging, 10, 50), [](auto& d) { d.timeToEmpty = 100; }),
                     with(battery(kDischarging, 20, 50), [](auto& d) { d.timeToEmpty = 200; })},
                    {}},
                   -1,
                   {{"Power Source State", "Battery Power"}}},
        // Figures the daemon did not give leave the percentage to tell the charge.
        DaemonCase{"PercentageWithoutEnergy",
                   {{with(battery(kDischarging, 30, 60),
                          [](auto& d) {
                            d.energy.reset();
                            d.percentage = 42.4;
                          })},
                    {}},
                   -1,
                   {{"Current Capacity", 42}, {"Max Capacity", 100}}},
        DaemonCase{"NotANumber",
                   {{with(battery(kDischarging, 30, 60),
                          [](auto& d) {
                            d.energyFull = std::nan("");
                            d.percentage = 7;
                          })},
                    {}},
                   -1,
                   {{"Current Capacity", 7}}}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(DaemonSummaryTest, ElectricalFiguresInTheBatterysUnits) {
  PowerDaemon::Devices devices{{with(battery(kDischarging, 44.4, 55.5),
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
