#include "vexa/status/NetworkStatus.h"

#include "status/NetworkChanges.h"
#include "status/SamplerTimer.h"
#include "util/PathName.h"

namespace vexa {

NetworkStatus* NetworkStatus::shared() {
  static std::mutex lock;
  static std::shared_ptr<NetworkStatus> instance;
  std::lock_guard guard(lock);
  if (!instance) instance = create("/");
  return instance.get();
}

std::shared_ptr<NetworkStatus> NetworkStatus::create(const std::string& root) {
  const bool live = root.empty() || root == "/";
  // A captured tree never changes: its services are found once.
  auto status = withManager(NetManage::create(root), live ? NetworkChanges::system() : nullptr);
  if (!live) status->clearEverySample_ = false;
  status->setFreshInterval(1);
  return status;
}

std::shared_ptr<NetworkStatus> NetworkStatus::withManager(std::unique_ptr<NetManage> manager,
                                                          std::unique_ptr<NetworkChanges> changes) {
  // The first traffic reading is the base the first sample is measured from.
  manager->netStatsWithInterval(1.0);
  std::shared_ptr<NetworkStatus> status(new NetworkStatus(std::move(manager)));
  if (changes && changes->start([weak = status->weak_from_this()] {
        if (const auto self = weak.lock()) self->configurationChanged();
      })) {
    status->changes_ = std::move(changes);
    status->clearEverySample_ = false;
  }
  return status;
}

void NetworkStatus::configurationChanged() {
  std::lock_guard guard(lock_);
  netManage_->clearHistory();
}

NetworkStatus::NetworkStatus(std::unique_ptr<NetManage> manager)
    : netManage_(std::move(manager)), timer_(std::make_unique<SamplerTimer>()) {}

NetworkStatus::~NetworkStatus() { timer_->stop(); }

void NetworkStatus::setFreshInterval(int32_t seconds) {
  timer_->set(seconds, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->updateInfo();
  });
}

int32_t NetworkStatus::freshInterval() const { return timer_->seconds(); }

int32_t NetworkStatus::stayNetHistoryCount() const {
  std::lock_guard guard(lock_);
  return stayNetHistoryCount_;
}

void NetworkStatus::setStayNetHistoryCount(int32_t count) {
  std::lock_guard guard(lock_);
  stayNetHistoryCount_ = count;
}

std::shared_ptr<NetworkDelegate> NetworkStatus::delegate() const {
  std::lock_guard guard(lock_);
  return delegate_;
}

void NetworkStatus::setDelegate(std::shared_ptr<NetworkDelegate> delegate) {
  std::lock_guard guard(lock_);
  delegate_ = std::move(delegate);
}

std::vector<nlohmann::json> NetworkStatus::netHistoryData() const {
  std::lock_guard guard(lock_);
  return netHistoryData_;
}

std::vector<double> NetworkStatus::netHistoryIntervals() const {
  std::lock_guard guard(lock_);
  return netHistoryIntervals_;
}

std::optional<nlohmann::json> NetworkStatus::preferredInterfaceInfo() const {
  std::lock_guard guard(lock_);
  return preferredInterfaceInfo_;
}

namespace {

// Drops the oldest entries so that `count` stay before the next is added; below 2, all go.
template <typename T>
void trimHistory(std::vector<T>& history, int32_t count) {
  if (count < 2) {
    history.clear();
    return;
  }
  const auto keep = static_cast<size_t>(count);
  if (history.size() > keep) {
    history.erase(history.begin(),
                  history.begin() + static_cast<std::ptrdiff_t>(history.size() - keep + 1));
  }
}

}  // namespace

void NetworkStatus::updateInfo() {
  std::vector<nlohmann::json> sends;
  {
    std::lock_guard guard(lock_);
    if (clearEverySample_) netManage_->clearHistory();
    if (const auto primary = netManage_->queryMainInterfaceName(); primary && !primary->empty()) {
      preferredInterfaceInfo_ = netManage_->interfaceConfigWithName(*primary);
    }
    const auto now = std::chrono::steady_clock::now();
    const double interval = lastSampleDate_
                                ? std::chrono::duration<double>(now - *lastSampleDate_).count()
                                : static_cast<double>(timer_->seconds());
    const auto stats = netManage_->netStatsWithInterval(interval);
    trimHistory(netHistoryData_, stayNetHistoryCount_);
    trimHistory(netHistoryIntervals_, stayNetHistoryCount_);
    netHistoryData_.push_back(stats.value_or(nlohmann::json()));
    netHistoryIntervals_.push_back(interval);
    lastSampleDate_ = now;

    nlohmann::json list = netManage_->queryInterfaceLists();
    const nlohmann::json& latest = netHistoryData_.back();
    for (auto& record : list) {
      if (!record.contains("service_id")) continue;
      bool active = record.value("linkactive_status", true);
      if (const auto ppp = record.find("ppp_status_info");
          ppp != record.end() && ppp->value("status", 1u) == 0) {
        active = false;
      }
      record["is_active_interface"] = active;
      const std::string device = record.value("device_name", "");
      const std::string pppName = record.value("device_ppp_name", "");
      std::string statName;
      if (!pppName.empty() && !PathName::hasPrefix(device, "en")) {
        statName = pppName;
      } else {
        statName = device;
      }
      if (!statName.empty() && latest.is_object() && latest.contains(statName)) {
        record["throughput_details"] = latest[statName];
        record["sampling_interval"] = netHistoryIntervals_.back();
      }
      sends.push_back(list);
    }
  }
  if (const auto to = delegate()) {
    for (const auto& services : sends) to->networkStatus(services);
  }
}

}  // namespace vexa
