#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace status_tool_test {

struct ToolRun {
  int status = -1;
  std::vector<nlohmann::json> lines;
};

ToolRun runTool(const std::string& arguments) {
  ToolRun run;
  const std::string command = std::string(VEXA_STATUS_TOOL) + " " + arguments + " 2>/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return run;
  char buffer[65536];
  while (std::fgets(buffer, sizeof buffer, pipe)) {
    run.lines.push_back(nlohmann::json::parse(buffer, nullptr, false));
  }
  run.status = pclose(pipe);
  return run;
}

std::vector<std::string> calls(const ToolRun& run) {
  std::vector<std::string> names;
  for (const auto& line : run.lines) names.push_back(line.value("call", "?"));
  return names;
}

TEST(StatusToolTest, OnceOnAFixtureMachinePrintsEveryCallBack) {
  const auto start = std::chrono::steady_clock::now();
  const ToolRun run =
      runTool("--json --once --sysroot " VEXA_TEST_DATA_DIR "/machines/intel-laptop");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(
      calls(run),
      (std::vector<std::string>{
          "setupSystemInformation", "batteryWithRemaining", "batteryFigures", "updateMemoryStatus",
          "diskDetails", "cpuUsedWithCore", "cpuUsedWithCore", "cpuUsedWithCore", "cpuUsedWithCore",
          "cpuUsedWithSystem", "processorWithTaskCount", "loadAverageWith1m", "cpuWithTemperature",
          "networkStatus", "networkStatus", "updateProcessStaus"}));
  for (const auto& line : run.lines) {
    ASSERT_TRUE(line.is_object());
    EXPECT_TRUE(line["time"].is_number());
    EXPECT_TRUE(line["data"].is_object());
  }
  EXPECT_EQ(run.lines[0]["data"]["sysModelID"], "XPS 13 9310");
  EXPECT_EQ(run.lines[1]["data"]["remaining"], "3:00");
  // 28.5 of 50 Wh: 0.57 × 100 is 56.999… in binary, and the percentage is truncated.
  EXPECT_EQ(run.lines[2]["data"]["currentPercent"], 56);
  EXPECT_EQ(run.lines[3]["data"]["swap"]["swap_prefix"], "zram0");
  EXPECT_TRUE(run.lines[3]["data"]["vm"].is_object());
  const auto& disks = run.lines[4]["data"]["disks"];
  ASSERT_EQ(disks.size(), 2u);
  EXPECT_EQ(disks[1]["disk_name"], "KINGSTON");
  EXPECT_EQ(run.lines[12]["data"]["temperature"], 59.5);
  EXPECT_EQ(run.lines[12]["source"], "cpu");
  const auto& services = run.lines[14]["data"]["services"];
  ASSERT_EQ(services.size(), 2u);
  EXPECT_EQ(services[0]["service_id"], "wlp0s20f3");
  EXPECT_EQ(services[0]["throughput_details"]["downlink_speed"], 0u);
  // The captured machine keeps no processes: no application runs there.
  EXPECT_EQ(run.lines[15]["source"], "process");
  EXPECT_TRUE(run.lines[15]["data"]["processes"].is_null());
}

TEST(StatusToolTest, OnlyPicksTheSamplers) {
  const ToolRun run =
      runTool("--json --once --only memory --sysroot " VEXA_TEST_DATA_DIR "/machines/vm-2cpu");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(calls(run), std::vector<std::string>{"updateMemoryStatus"});
}

TEST(StatusToolTest, BadArgumentsAndAnEmptyRoot) {
  EXPECT_NE(runTool("--only floppy").status, 0);
  EXPECT_NE(runTool("--interval 0").status, 0);
  const ToolRun empty = runTool("--json --once --only cpu,memory --sysroot /nonexistent");
  EXPECT_EQ(empty.status, 0);
  EXPECT_TRUE(empty.lines.empty());
  // No mount table: an empty volume list. No interfaces: no network calls. No battery: none.
  const ToolRun devices =
      runTool("--json --once --only disk,battery,network --sysroot /nonexistent");
  EXPECT_EQ(devices.status, 0);
  EXPECT_EQ(calls(devices), std::vector<std::string>{"diskDetails"});
  EXPECT_EQ(devices.lines[0]["data"]["disks"], nlohmann::json::array());
}

TEST(StatusToolTest, DesktopHasNoBatteryLines) {
  const ToolRun run = runTool("--json --once --only battery,disk --sysroot " VEXA_TEST_DATA_DIR
                              "/machines/amd-desktop");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(calls(run), std::vector<std::string>{"diskDetails"});
}

}  // namespace status_tool_test
