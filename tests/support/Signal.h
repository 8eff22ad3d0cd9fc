#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace vexa::test {

// A counter threads bump and a test waits on, until a value or a deadline.
class Signal {
 public:
  void add(int n = 1) {
    std::lock_guard lock(mutex_);
    count_ += n;
    cv_.notify_all();
  }
  int count() const {
    std::lock_guard lock(mutex_);
    return count_;
  }
  bool waitFor(int atLeast, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, timeout, [&] { return count_ >= atLeast; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable cv_;
  int count_ = 0;
};

}  // namespace vexa::test
