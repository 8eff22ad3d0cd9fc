#include "DashboardFeed.h"

#include <utility>

#include "vexa/status/PasteboardMonitor.h"
#include "vexa/util/RunLoop.h"

namespace vexa::tools {

DashboardFeed::DashboardFeed(DashboardModel& model, std::shared_ptr<BatteryStatus> battery,
                             std::function<void()> changed, std::function<void()> cleaned)
    : model_(model),
      battery_(std::move(battery)),
      changed_(std::move(changed)),
      cleaned_(std::move(cleaned)) {}

bool DashboardFeed::taking() {
  if (model_.paused()) return false;
  changed_();
  return true;
}

void DashboardFeed::updateMemoryStatus(const nlohmann::json& memory, const nlohmann::json&,
                                       const std::optional<nlohmann::json>& swap) {
  // The swap figures come with the first sample only: taken even while paused.
  const bool take = taking();
  if (take || swap) model_.setMemory(memory, swap);
}

void DashboardFeed::clearMemoryCompleted() {
  // On a worker of the global queue.
  RunLoop::main().post([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->cleaned_();
  });
}

void DashboardFeed::cpuUsedWithCore(uint32_t core, float system, float user, float idle) {
  if (taking()) model_.setCore({core, system, user, idle});
}

void DashboardFeed::cpuUsedWithSystem(float system, float user, float idle) {
  if (taking()) model_.setCpuTotal(system, user, idle);
}

void DashboardFeed::processorWithTaskCount(int32_t taskCount, int32_t threadCount) {
  if (taking()) model_.setTasks(taskCount, threadCount);
}

void DashboardFeed::loadAverageWith1m(float oneMinute, float fiveMinutes, float fifteenMinutes) {
  if (taking()) model_.setLoad(oneMinute, fiveMinutes, fifteenMinutes);
}

void DashboardFeed::cpuWithTemperature(double temperature) {
  if (taking()) model_.setTemperature(temperature);
}

void DashboardFeed::diskDetails(const nlohmann::json& disks) {
  if (taking()) model_.setDisks(disks);
}

void DashboardFeed::networkStatus(const nlohmann::json& services) {
  if (!taking()) return;
  model_.setServices(services);
  // A sample's records arrive in several calls of one turn of the loop: its rates join the
  // histories once, at the next turn.
  if (networkCommitPending_) return;
  networkCommitPending_ = true;
  RunLoop::main().post([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->networkCommitPending_ = false;
    self->model_.commitNetworkSample();
  });
}

void DashboardFeed::updateProcessStaus(const std::optional<std::vector<ProcessInfo>>& infos) {
  if (!taking()) return;
  std::vector<DashboardModel::Application> applications;
  if (infos) {
    for (const ProcessInfo& info : *infos) {
      applications.push_back({info.pid, info.appName, info.cpu, info.memory, info.phyMemoryPages});
    }
  }
  model_.setApplications(std::move(applications));
}

void DashboardFeed::pasteboardChange(Pasteboard&) {
  if (taking()) model_.setClipboardChanges(PasteboardMonitor::shared().lastChangeCount());
}

void DashboardFeed::battery(std::string state) {
  if (!taking()) return;
  model_.setBatteryState(std::move(state));
  if (battery_) model_.setBatteryPercent(static_cast<double>(battery_->currentPercent()));
}

void DashboardFeed::batteryCalculating(double) { battery("on battery, calculating"); }

void DashboardFeed::batteryWithRemaining(const std::string& remaining) {
  battery("on battery, " + remaining + " left");
}

void DashboardFeed::batteryRemainingWithLeft(const std::string& left) {
  battery("on battery, " + left + " left");
}

void DashboardFeed::batteryCharged() { battery("on mains power"); }

void DashboardFeed::charged() { battery("fully charged"); }

void DashboardFeed::batteryChargingCalculating() { battery("charging"); }

void DashboardFeed::batteryChargingWithRemaining(const std::string& remaining) {
  battery("charging, " + remaining + " to full");
}

}  // namespace vexa::tools
