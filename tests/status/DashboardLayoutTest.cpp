#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "DashboardLayout.h"
#include "DashboardText.h"

namespace vexa::tools {
namespace dashboard_layout_test {

using Line = DashboardLayout::Line;

// A laptop with every panel filled, names in several scripts among them.
DashboardModel busyLaptop() {
  DashboardModel model;
  model.setSystem({{"computerName", "Zoë's Laptop"},
                   {"sysOSVersion", "Debian GNU/Linux 12 (6.1.0-18-amd64)"},
                   {"sysModelID", "XPS 13 9310"},
                   {"sysProcessorName", "Intel Core i7"},
                   {"sysProcessorCount", 8},
                   {"sysPhysicalMemory", 17179869184u}});
  model.setUptime(93784);
  for (uint32_t core = 0; core < 8; ++core) {
    model.setCore({core, 0.1, 0.1 * core, 0.8 - 0.1 * core});
  }
  model.setCpuTotal(0.1, 0.35, 0.55);
  model.setTasks(412, 1234);
  model.setLoad(0.52, 0.58, 0.59);
  model.setTemperature(59.5);
  model.setMemory({{"memory_total", 16384000000u},
                   {"memory_active", 5120000000u},
                   {"memory_wired", 4095475712u},
                   {"memory_compressed", 524288u},
                   {"memory_free", 7168000000u}},
                  nlohmann::json{{"swap_size", 4294963200u},
                                 {"swap_used", 1048576u},
                                 {"swap_count", 1u},
                                 {"swap_prefix", "zram0"}});
  model.setDisks({{{"disk_name", "Filesystem root"},
                   {"disk_path", "/"},
                   {"disk_totalsize", 270553174016u},
                   {"disk_usedsize", 200065937408u}},
                  {{"disk_name", "ФЛЕШКА"},
                   {"disk_path", "/media/zoe/ФЛЕШКА"},
                   {"disk_totalsize", 0u},
                   {"disk_usedsize", 0u}}});
  for (double down : {0.0, 1e3, 1e6, 1e12, 1e300}) {
    model.setServices({{{"service_id", "wlp0s20f3"},
                        {"user_defind_name", "Wi-Fi"},
                        {"linkactive_status", true},
                        {"sampling_interval", 1.0},
                        {"throughput_details",
                         {{"downlink_speed", down}, {"uplink_speed", 5}, {"peak_speek", down}}}},
                       {{"service_id", "enp0s31f6"},
                        {"user_defind_name", "Ethernet"},
                        {"linkactive_status", false}}});
    model.commitNetworkSample();
  }
  model.setBatteryPercent(56);
  model.setBatteryState("on battery, 3:00 left");
  std::vector<DashboardModel::Application> apps;
  for (int32_t pid = 100; pid < 140; ++pid) {
    apps.push_back(
        {pid, pid % 2 ? "文字エディタ" : "Firefox\tNightly", pid / 10.0, 1.5, pid * 1000});
  }
  model.setApplications(std::move(apps));
  model.setClipboardChanges(7);
  return model;
}

std::string joined(const std::vector<Line>& lines) {
  std::string text;
  for (const auto& line : lines) text += line.text + "\n";
  return text;
}

struct Size {
  int width, height;
};

class DashboardLayoutSizes : public testing::TestWithParam<Size> {};

TEST_P(DashboardLayoutSizes, FillsTheTerminalExactlyInEitherCharacterSet) {
  const auto [width, height] = GetParam();
  const DashboardModel model = busyLaptop();
  for (const bool ascii : {false, true}) {
    const auto lines = DashboardLayout::render(model, width, height, ascii);
    ASSERT_EQ(lines.size(), static_cast<size_t>(height));
    for (const auto& line : lines) {
      EXPECT_EQ(DashboardText::cells(line.text), width) << "[" << line.text << "]";
      if (!ascii) continue;
      for (const char c : line.text) {
        ASSERT_LT(static_cast<unsigned char>(c), 0x80) << "[" << line.text << "]";
      }
    }
    EXPECT_NE(joined(lines).find("CPU"), std::string::npos);
    EXPECT_NE(lines.back().text.find("q quit"), std::string::npos);
  }
}

INSTANTIATE_TEST_SUITE_P(Terminals, DashboardLayoutSizes,
                         testing::Values(Size{40, 10}, Size{100, 30}, Size{200, 60}, Size{41, 11},
                                         Size{80, 24}, Size{1000, 12}));

TEST(DashboardLayoutTest, TooSmallTerminalsGetOneLine) {
  const DashboardModel model = busyLaptop();
  for (const Size size : {Size{39, 30}, Size{100, 9}, Size{1, 1}, Size{0, 0}, Size{-4, -2}}) {
    const auto lines = DashboardLayout::render(model, size.width, size.height, false);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(DashboardText::cells(lines[0].text), std::max(size.width, 0));
  }
  EXPECT_EQ(DashboardLayout::render(model, 39, 10, true)[0].text.substr(0, 18),
            "terminal too small");
}

TEST(DashboardLayoutTest, PanelsShowTheFiguresAtAHundredByThirty) {
  const auto text = joined(DashboardLayout::render(busyLaptop(), 100, 30, false));
  for (const char* expected :
       {"Zoë's Laptop", "up 1d 02:03", "every 1s", "59.5 °C", "load 0.52 0.58 0.59", "412 tasks",
        "Memory  9.22 GB used of 16.4 GB", "swap", "zram0", "Filesystem root", "200 GB of 271 GB",
        "Wi-Fi (wlp0s20f3)", "no link", "56%  on battery, 3:00 left", "Clipboard  7 changes",
        "sorted by cpu"}) {
    EXPECT_NE(text.find(expected), std::string::npos) << expected << "\n" << text;
  }
}

TEST(DashboardLayoutTest, ApplicationsTakeTheRemainingHeight) {
  const auto lines = DashboardLayout::render(busyLaptop(), 200, 60, false);
  const auto text = joined(lines);
  // Highest processor share first, and every row of the panel filled.
  const auto first = text.find("    139 ");
  ASSERT_NE(first, std::string::npos) << text;
  EXPECT_LT(first, text.find("    138 "));
  EXPECT_NE(text.find("Firefox?Nightly"), std::string::npos);  // the tab does not move the cursor
  EXPECT_EQ(lines[lines.size() - 2].text.find("   "), 0u);     // a process row, not padding
}

TEST(DashboardLayoutTest, ModeSpecificText) {
  DashboardModel model = busyLaptop();
  const auto ascii = joined(DashboardLayout::render(model, 100, 30, true));
  EXPECT_NE(ascii.find("59.5 C"), std::string::npos);
  EXPECT_NE(ascii.find("Zo?'s Laptop"), std::string::npos);

  DashboardModel desktop;  // no battery, no temperature sensor, nothing sampled yet
  desktop.setCpuTotal(0, 0, 1);
  auto text = joined(DashboardLayout::render(desktop, 100, 30, false));
  EXPECT_EQ(text.find("Battery"), std::string::npos);
  EXPECT_NE(text.find("no sensor"), std::string::npos);
  EXPECT_NE(text.find("waiting for the first sample"), std::string::npos);

  model.handleKey('p');
  EXPECT_NE(joined(DashboardLayout::render(model, 100, 30, false)).find("PAUSED"),
            std::string::npos);
  model.setCanClean(true);
  model.handleKey('c');
  EXPECT_NE(DashboardLayout::render(model, 100, 30, false).back().text.find("(y/n)"),
            std::string::npos);
  model.handleKey('n');
  model.handleKey('?');
  text = joined(DashboardLayout::render(model, 100, 30, false));
  EXPECT_NE(text.find("clean memory (asks first)"), std::string::npos);
  EXPECT_EQ(text.find("Applications"), std::string::npos);
}

}  // namespace dashboard_layout_test
}  // namespace vexa::tools
