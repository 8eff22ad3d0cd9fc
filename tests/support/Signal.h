#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

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

// Waits until the condition holds (checking it every few milliseconds), or the deadline passes:
// for state that has nothing to signal with, such as a file another process rewrites.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace vexa::test
