#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "DashboardModel.h"
#include "vexa/status/BatteryDelegate.h"
#include "vexa/status/BatteryStatus.h"
#include "vexa/status/CPUDelegate.h"
#include "vexa/status/DiskDelegate.h"
#include "vexa/status/MemoryDelegate.h"
#include "vexa/status/NetworkDelegate.h"
#include "vexa/status/PasteboardMonitorDelegate.h"
#include "vexa/status/ProcessStatsDelegate.h"

namespace vexa::tools {

// The samplers' delegate while the dashboard runs: writes what they report into the model and
// says that the screen is out of date. Every call-back but the cleaning's arrives on the main
// loop's thread, which owns the model; the cleaning's end is posted there. While the model is
// paused, figures are dropped.
class DashboardFeed : public MemoryDelegate,
                      public CPUDelegate,
                      public DiskDelegate,
                      public BatteryDelegate,
                      public NetworkDelegate,
                      public ProcessStatsDelegate,
                      public PasteboardMonitorDelegate,
                      public std::enable_shared_from_this<DashboardFeed> {
 public:
  // `changed` runs on the main loop after the model changed; `cleaned` after a cleaning ended.
  DashboardFeed(DashboardModel& model, std::shared_ptr<BatteryStatus> battery,
                std::function<void()> changed, std::function<void()> cleaned);

  void updateMemoryStatus(const nlohmann::json& memory, const nlohmann::json& vm,
                          const std::optional<nlohmann::json>& swap) override;
  void clearMemoryCompleted() override;
  void cpuUsedWithCore(uint32_t core, float system, float user, float idle) override;
  void cpuUsedWithSystem(float system, float user, float idle) override;
  void processorWithTaskCount(int32_t taskCount, int32_t threadCount) override;
  void loadAverageWith1m(float oneMinute, float fiveMinutes, float fifteenMinutes) override;
  void cpuWithTemperature(double temperature) override;
  void diskDetails(const nlohmann::json& disks) override;
  void networkStatus(const nlohmann::json& services) override;
  void updateProcessStaus(const std::optional<std::vector<ProcessInfo>>& infos) override;
  using ProcessStatsDelegate::updateProcessStaus;
  void pasteboardChange(Pasteboard& pasteboard) override;

  void batteryCalculating(double percent) override;
  void batteryWithRemaining(const std::string& remaining) override;
  void batteryRemainingWithLeft(const std::string& left) override;
  void batteryCharged() override;
  void charged() override;
  void batteryChargingCalculating() override;
  void batteryChargingWithRemaining(const std::string& remaining) override;

 private:
  // Takes a battery state with the sampler's charge level.
  void battery(std::string state);
  // Whether figures are taken now; each taken figure marks the screen out of date.
  bool taking();

  DashboardModel& model_;
  std::shared_ptr<BatteryStatus> battery_;
  std::function<void()> changed_;
  std::function<void()> cleaned_;
  bool networkCommitPending_ = false;
};

}  // namespace vexa::tools
