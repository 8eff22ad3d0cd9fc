#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"
#include "vexa/status/NetManage.h"
#include "vexa/status/NetPPP.h"
#include "vexa/status/NetworkDelegate.h"

namespace vexa {

class NetworkChanges;
class SamplerTimer;

// Samples the network services every freshInterval seconds (1 by default) on the run loop of
// the thread that created it or last changed the interval. Each sample adds to the service
// records of NetManage "is_active_interface", "throughput_details" (the traffic record of the
// service's interface) and "sampling_interval" (seconds since the previous sample).
//
// NetManage keeps the services it found until the network configuration changes: on the
// running machine the kernel's link, address and route announcements (heard on the creating
// thread's run loop) make the next sample look again. Where no such announcements can be had,
// every sample looks afresh.
class VEXA_EXPORT NetworkStatus : public std::enable_shared_from_this<NetworkStatus> {
 public:
  static NetworkStatus* shared();
  // A sampler of the machine under `root`, sampling every second on the calling thread's run
  // loop.
  static std::shared_ptr<NetworkStatus> create(const std::string& root = "/");
  // A sampler over a given NetManage, not sampling until an interval is set. `changes` tell it
  // when to forget the services found; without them (null, or when they cannot start) every
  // sample looks afresh.
  static std::shared_ptr<NetworkStatus> withManager(
      std::unique_ptr<NetManage> manager, std::unique_ptr<NetworkChanges> changes = nullptr);
  ~NetworkStatus();
  NetworkStatus(const NetworkStatus&) = delete;
  NetworkStatus& operator=(const NetworkStatus&) = delete;

  void setFreshInterval(int32_t seconds);
  int32_t freshInterval() const;
  // How many samples the history keeps (it may hold one more); below 2 it keeps only the
  // newest.
  int32_t stayNetHistoryCount() const;
  void setStayNetHistoryCount(int32_t count);
  // One sample now, on the calling thread.
  void updateInfo();
  std::shared_ptr<NetworkDelegate> delegate() const;
  void setDelegate(std::shared_ptr<NetworkDelegate> delegate);

  // The traffic maps of the kept samples, oldest first, and their intervals.
  std::vector<nlohmann::json> netHistoryData() const;
  std::vector<double> netHistoryIntervals() const;
  std::optional<nlohmann::json> preferredInterfaceInfo() const;

 private:
  explicit NetworkStatus(std::unique_ptr<NetManage> manager);
  void configurationChanged();

  std::unique_ptr<NetManage> netManage_;
  std::unique_ptr<SamplerTimer> timer_;
  // Destroyed before the manager: nothing announces changes to a manager that is gone.
  std::unique_ptr<NetworkChanges> changes_;
  mutable std::mutex lock_;
  std::shared_ptr<NetworkDelegate> delegate_;
  int32_t stayNetHistoryCount_ = 1;
  bool clearEverySample_ = true;
  std::vector<nlohmann::json> netHistoryData_;
  std::vector<double> netHistoryIntervals_;
  std::optional<std::chrono::steady_clock::time_point> lastSampleDate_;
  std::optional<nlohmann::json> preferredInterfaceInfo_;
};

}  // namespace vexa
