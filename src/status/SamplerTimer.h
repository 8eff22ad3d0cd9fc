#pragma once

#include <functional>
#include <memory>
#include <mutex>

namespace vexa {

class Timer;

// The samplers' period: setting the value it already has keeps the running timer; any other
// value replaces it with a repeating timer of that many seconds on the calling thread's run
// loop. A period of 0 or less stops sampling.
class SamplerTimer {
 public:
  SamplerTimer() = default;
  ~SamplerTimer();
  SamplerTimer(const SamplerTimer&) = delete;
  SamplerTimer& operator=(const SamplerTimer&) = delete;

  // Answers whether a new timer was made.
  bool set(int seconds, std::function<void()> fire);
  int seconds() const;
  void stop();

 private:
  mutable std::mutex mutex_;
  int seconds_ = 0;
  std::shared_ptr<Timer> timer_;
};

}  // namespace vexa
