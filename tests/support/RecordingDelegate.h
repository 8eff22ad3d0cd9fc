#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "vexa/events/FileSystemMonitorDelegate.h"

namespace vexa::test {

// Records every call as "kind path" (or "move source -> target"), from any thread.
class RecordingDelegate : public FileSystemMonitorDelegate {
 public:
  void fileCreated(const std::string& p) override { record("created " + p); }
  void fileMoveIn(const std::string& p) override { record("movein " + p); }
  void fileMoveOut(const std::string& p) override { record("moveout " + p); }
  void fileMoveOrRename(const std::string& s, const std::string& t) override {
    record("move " + s + " -> " + t);
  }
  void fileRemove(const std::string& p) override { record("removed " + p); }
  void fileModify(const std::string& p) override { record("modified " + p); }
  void eventsLost(const std::string& p) override { record("lost " + p); }

  std::vector<std::string> calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
  }
  bool waitForCount(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, timeout, [&] { return calls_.size() >= n; });
  }

 private:
  void record(std::string call) {
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
    cv_.notify_all();
  }
  mutable std::mutex mutex_;
  std::condition_variable cv_;
  std::vector<std::string> calls_;
};

}  // namespace vexa::test
