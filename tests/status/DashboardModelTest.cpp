#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "DashboardModel.h"

namespace vexa::tools {
namespace dashboard_model_test {

using Action = DashboardModel::Action;
using Prompt = DashboardModel::Prompt;
using Sort = DashboardModel::Sort;

std::vector<int32_t> pids(const std::vector<DashboardModel::Application>& apps) {
  std::vector<int32_t> out;
  for (const auto& app : apps) out.push_back(app.pid);
  return out;
}

TEST(DashboardModelTest, SortKeyCyclesThroughTheApplicationOrders) {
  DashboardModel model;
  model.setApplications({{30, "zed", 5.0, 1.0, 1000},
                         {10, "Alpha", 50.0, 0.5, 200},
                         {20, "beta", 5.0, 9.0, 90000},
                         {40, "alpha", 0.0, 0.1, 200}});
  EXPECT_EQ(model.sort(), Sort::Cpu);
  // Equal figures go by process id, so the order never flickers between samples.
  EXPECT_EQ(pids(model.sortedApplications()), (std::vector<int32_t>{10, 20, 30, 40}));
  EXPECT_EQ(model.handleKey('s'), Action::Redraw);
  EXPECT_EQ(model.sort(), Sort::Memory);
  EXPECT_EQ(pids(model.sortedApplications()), (std::vector<int32_t>{20, 30, 10, 40}));
  model.handleKey('s');
  EXPECT_EQ(model.sort(), Sort::Name);
  EXPECT_EQ(pids(model.sortedApplications()), (std::vector<int32_t>{10, 40, 20, 30}));
  model.handleKey('s');
  EXPECT_EQ(model.sort(), Sort::Pid);
  EXPECT_EQ(pids(model.sortedApplications()), (std::vector<int32_t>{10, 20, 30, 40}));
  model.handleKey('s');
  EXPECT_EQ(model.sort(), Sort::Cpu);
}

TEST(DashboardModelTest, IntervalPauseHelpAndQuitKeys) {
  DashboardModel model(2);
  EXPECT_EQ(model.handleKey('+'), Action::IntervalChanged);
  EXPECT_EQ(model.interval(), 3);
  EXPECT_EQ(model.handleKey('-'), Action::IntervalChanged);
  EXPECT_EQ(model.handleKey('-'), Action::IntervalChanged);
  EXPECT_EQ(model.interval(), 1);
  EXPECT_EQ(model.handleKey('-'), Action::None);  // not below one second
  EXPECT_EQ(model.interval(), 1);
  EXPECT_EQ(DashboardModel(1000000).interval(), DashboardModel::kMaxInterval);

  EXPECT_EQ(model.handleKey('p'), Action::Redraw);
  EXPECT_TRUE(model.paused());
  model.handleKey('p');
  EXPECT_FALSE(model.paused());

  model.handleKey('?');
  EXPECT_EQ(model.prompt(), Prompt::Help);
  EXPECT_EQ(model.handleKey('s'), Action::Redraw);  // closes the help, does not sort
  EXPECT_EQ(model.prompt(), Prompt::None);
  EXPECT_EQ(model.sort(), Sort::Cpu);
  EXPECT_EQ(model.handleKey('x'), Action::None);
  model.handleKey('?');
  EXPECT_EQ(model.handleKey('q'), Action::Quit);
}

TEST(DashboardModelTest, CleaningAsksFirstAndReportsTheGain) {
  DashboardModel model;
  model.handleKey('c');
  EXPECT_EQ(model.prompt(), Prompt::None);  // nothing to clean without memory figures
  EXPECT_FALSE(model.message().empty());

  model.setCanClean(true);
  EXPECT_EQ(model.handleKey('c'), Action::Redraw);
  EXPECT_EQ(model.prompt(), Prompt::ConfirmClean);
  EXPECT_EQ(model.handleKey('q'), Action::Redraw);  // an answer, not the quit key
  EXPECT_EQ(model.prompt(), Prompt::None);
  EXPECT_FALSE(model.cleaning());

  model.handleKey('c');
  EXPECT_EQ(model.handleKey('y'), Action::Clean);
  EXPECT_TRUE(model.cleaning());
  model.handleKey('c');  // one cleaning at a time
  EXPECT_EQ(model.prompt(), Prompt::None);
  model.cleaningFinished(1500000000.0);
  EXPECT_FALSE(model.cleaning());
  EXPECT_EQ(model.message(), "memory cleaned: 1.50 GB more available");
  model.cleaningFinished(-2000.0);
  EXPECT_EQ(model.message(), "memory cleaned: 2.00 kB less available");
}

TEST(DashboardModelTest, FiguresFromTheSamplersDictionaries) {
  DashboardModel model;
  // Absent and null entries (a serial number only root may read) are not errors.
  model.setSystem({{"computerName", nullptr},
                   {"sysName", "ryzen"},
                   {"sysOSVersion", "Debian GNU/Linux 12 (6.1.0-18-amd64)"},
                   {"sysProcessorCount", 4},
                   {"sysSerialNumber", nullptr}});
  EXPECT_EQ(model.system().host, "ryzen");
  EXPECT_EQ(model.system().processorCount, 4u);

  model.setCore({3, 0.1, 0.2, 0.7});
  model.setCore({0, 0.0, 0.0, 1.0});
  model.setCore({3, 0.5, 0.5, 0.0});
  ASSERT_EQ(model.cpu().cores.size(), 2u);
  EXPECT_EQ(model.cpu().cores[0].number, 0u);
  EXPECT_EQ(model.cpu().cores[1].idle, 0.0);

  model.setMemory({{"memory_total", 100u}, {"memory_active", 40u}, {"memory_free", 30u}},
                  nlohmann::json{{"swap_size", 50u}, {"swap_count", 1u}, {"swap_prefix", "zram0"}});
  model.setMemory({{"memory_total", 100u}, {"memory_active", 45u}}, std::nullopt);
  ASSERT_TRUE(model.memory());
  EXPECT_EQ(model.memory()->active, 45u);
  ASSERT_TRUE(model.swap());  // the first sample's swap figures stay
  EXPECT_EQ(model.swap()->name, "zram0");

  EXPECT_FALSE(model.disks());
  model.setDisks(nlohmann::json::array());
  ASSERT_TRUE(model.disks());
  EXPECT_TRUE(model.disks()->empty());
  EXPECT_FALSE(model.battery());
}

nlohmann::json service(const char* id, bool withTraffic, uint64_t down) {
  nlohmann::json record = {{"service_id", id}, {"linkactive_status", true}};
  if (withTraffic) {
    record["sampling_interval"] = 2.0;
    record["throughput_details"] = {
        {"downlink_speed", down}, {"uplink_speed", 10u}, {"peak_speek", 900.0}};
  }
  return record;
}

TEST(DashboardModelTest, NetworkHistoryGrowsOncePerSample) {
  DashboardModel model;
  // A sample of two services arrives as two calls, the first with only the first's traffic.
  for (uint64_t down : {100u, 300u}) {
    model.setServices({service("eth0", true, down), service("wlan0", false, 0)});
    model.setServices({service("eth0", true, down), service("wlan0", true, down * 2)});
    model.commitNetworkSample();
  }
  ASSERT_EQ(model.services().size(), 2u);
  const auto& eth = model.services()[0];
  EXPECT_EQ(eth.name, "eth0");
  EXPECT_EQ(eth.downHistory, (std::vector<double>{50, 150}));  // bytes over two seconds
  EXPECT_EQ(eth.upHistory, (std::vector<double>{5, 5}));
  EXPECT_EQ(eth.peak, 900.0);
  EXPECT_EQ(model.services()[1].downHistory, (std::vector<double>{100, 300}));

  // A service that went away takes its history with it; the history is bounded.
  for (size_t i = 0; i < DashboardModel::kHistoryLength + 5; ++i) {
    model.setServices(nlohmann::json::array({service("wlan0", true, i)}));
    model.commitNetworkSample();
  }
  ASSERT_EQ(model.services().size(), 1u);
  EXPECT_EQ(model.services()[0].downHistory.size(), DashboardModel::kHistoryLength);
  EXPECT_EQ(model.services()[0].downHistory.back(),
            static_cast<double>(DashboardModel::kHistoryLength + 4) / 2);
}

}  // namespace dashboard_model_test
}  // namespace vexa::tools
