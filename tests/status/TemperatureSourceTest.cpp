#include "status/TemperatureSource.h"

#include <gtest/gtest.h>

#include <ostream>

namespace vexa {
namespace temperature_source_test {

struct ChoiceCase {
  const char* name;
  std::vector<HwmonChip> chips;
  std::vector<ThermalZone> zones;
  std::optional<std::string> source;
};
void PrintTo(const ChoiceCase& c, std::ostream* os) { *os << c.name; }

class TemperatureChoiceTest : public ::testing::TestWithParam<ChoiceCase> {};

TEST_P(TemperatureChoiceTest, PicksInTheFixedOrder) {
  const auto choice = chooseCpuTemperature(GetParam().chips, GetParam().zones);
  ASSERT_EQ(choice.has_value(), GetParam().source.has_value());
  if (choice) {
    EXPECT_EQ(choice->source, *GetParam().source);
  }
}

const HwmonChip kSmc{"applesmc", {{"TC0D", 70, ""}, {"TC0P", 55, ""}}};
const HwmonChip kCoretemp{"coretemp", {{"Core 0", 50, ""}, {"Package id 0", 52, ""}}};
const HwmonChip kCoresOnly{"coretemp", {{"Core 0", 50, ""}, {"Core 1", 58, ""}}};
const HwmonChip kK10{"k10temp", {{"Tctl", 60, ""}, {"Tdie", 50, ""}}};
const HwmonChip kK10Tctl{"k10temp", {{"Tctl", 60, ""}, {"Tccd1", 40, ""}}};
const HwmonChip kZen{"zenpower", {{"Tdie", 51, ""}}};
const HwmonChip kNvme{"nvme", {{"Composite", 38, ""}}};
const ThermalZone kAcpi{"acpitz", 27.8, ""};
const ThermalZone kPkg{"x86_pkg_temp", 61, ""};
const ThermalZone kCpuZone{"cpu-thermal", 44.8, ""};

INSTANTIATE_TEST_SUITE_P(
    Sources, TemperatureChoiceTest,
    ::testing::Values(
        ChoiceCase{"SmcFirst", {kCoretemp, kSmc}, {kPkg}, "applesmc/TC0P"},
        ChoiceCase{"CoretempPackage", {kNvme, kCoretemp, kK10}, {kPkg}, "coretemp/Package id 0"},
        ChoiceCase{"HottestCore", {kCoresOnly}, {kPkg}, "coretemp/Core 1"},
        ChoiceCase{"TdieBeforeTctl", {kK10}, {kAcpi}, "k10temp/Tdie"},
        ChoiceCase{"ZenpowerTdieBeforeK10Tctl", {kK10Tctl, kZen}, {}, "zenpower/Tdie"},
        ChoiceCase{"Tctl", {kK10Tctl}, {kAcpi}, "k10temp/Tctl"},
        ChoiceCase{"PackageZone", {kNvme}, {kAcpi, kCpuZone, kPkg}, "thermal/x86_pkg_temp"},
        ChoiceCase{"CpuZone", {}, {kAcpi, kCpuZone}, "thermal/cpu-thermal"},
        ChoiceCase{"AcpiLast", {kNvme}, {kAcpi}, "thermal/acpitz"},
        ChoiceCase{"Nothing", {kNvme}, {{"iwlwifi_1", 40, ""}}, std::nullopt}),
    [](const auto& row) { return std::string(row.param.name); });

struct Sp78Case {
  unsigned char high, low;
  double celsius;
};
void PrintTo(const Sp78Case& c, std::ostream* os) { *os << int(c.high) << " " << int(c.low); }

class Sp78Test : public ::testing::TestWithParam<Sp78Case> {};

TEST_P(Sp78Test, DecodesSignedBytes) {
  EXPECT_DOUBLE_EQ(decodeSp78(GetParam().high, GetParam().low), GetParam().celsius);
}

INSTANTIATE_TEST_SUITE_P(Bytes, Sp78Test,
                         ::testing::Values(Sp78Case{0x3C, 0x80, 59.5}, Sp78Case{0x3C, 0x00, 60.0},
                                           Sp78Case{0x3C, 0x40, 60.25}, Sp78Case{0x00, 0x00, 0.0},
                                           Sp78Case{0xFF, 0x00, -1.0}));

}  // namespace temperature_source_test
}  // namespace vexa
