#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <vector>

#include "vexa/status/ProcessStatsDelegate.h"

namespace vexa::test {

// Keeps every report of the process samplers, from any thread, and lets a test wait for them.
class ProcessRecorder : public ProcessStatsDelegate {
 public:
  void updateProcessStaus(const std::optional<std::vector<ProcessInfo>>& infos) override {
    std::lock_guard lock(mutex_);
    plain_.push_back(infos);
    changed_.notify_all();
  }
  void updateProcessStaus(const std::vector<ProcessInfoEx>& infos) override {
    std::lock_guard lock(mutex_);
    extended_.push_back(infos);
    changed_.notify_all();
  }

  std::vector<std::optional<std::vector<ProcessInfo>>> plain() const {
    std::lock_guard lock(mutex_);
    return plain_;
  }
  std::vector<std::vector<ProcessInfoEx>> extended() const {
    std::lock_guard lock(mutex_);
    return extended_;
  }
  // Waits until `count` extended reports have come, or the deadline passes.
  bool waitForExtended(size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return extended_.size() >= count; });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<std::optional<std::vector<ProcessInfo>>> plain_;
  std::vector<std::vector<ProcessInfoEx>> extended_;
};

}  // namespace vexa::test
