#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vexa/status/CPUDelegate.h"
#include "vexa/status/MemoryDelegate.h"

namespace vexa::test {

// Records every sampler call-back as {"call": ..., arguments...}, from any thread.
class StatusRecorder : public MemoryDelegate, public CPUDelegate {
 public:
  void updateMemoryStatus(const nlohmann::json& memory, const nlohmann::json& vm,
                          const std::optional<nlohmann::json>& swap) override {
    record({{"call", "updateMemoryStatus"},
            {"memory", memory},
            {"vm", vm},
            {"swap", swap ? *swap : nlohmann::json()}});
  }
  void clearMemoryCompleted() override { record({{"call", "clearMemoryCompleted"}}); }
  void cpuUsedWithCore(uint32_t core, float system, float user, float idle) override {
    record({{"call", "cpuUsedWithCore"},
            {"core", core},
            {"system", system},
            {"user", user},
            {"idle", idle}});
  }
  void cpuUsedWithSystem(float system, float user, float idle) override {
    record({{"call", "cpuUsedWithSystem"}, {"system", system}, {"user", user}, {"idle", idle}});
  }
  void processorWithTaskCount(int32_t tasks, int32_t threads) override {
    record({{"call", "processorWithTaskCount"}, {"taskCount", tasks}, {"threadCount", threads}});
  }
  void loadAverageWith1m(float one, float five, float fifteen) override {
    record({{"call", "loadAverageWith1m"}, {"1m", one}, {"5m", five}, {"15m", fifteen}});
  }
  void cpuWithTemperature(double temperature) override {
    record({{"call", "cpuWithTemperature"}, {"temperature", temperature}});
  }

  std::vector<nlohmann::json> calls(const std::string& name) const {
    std::lock_guard lock(mutex_);
    std::vector<nlohmann::json> found;
    for (const auto& call : calls_) {
      if (call["call"] == name) found.push_back(call);
    }
    return found;
  }
  size_t size() const {
    std::lock_guard lock(mutex_);
    return calls_.size();
  }
  void clear() {
    std::lock_guard lock(mutex_);
    calls_.clear();
  }

 private:
  void record(nlohmann::json call) {
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
  }
  mutable std::mutex mutex_;
  std::vector<nlohmann::json> calls_;
};

}  // namespace vexa::test
