#include "status/SamplerTimer.h"

#include "vexa/util/Timer.h"

namespace vexa {

SamplerTimer::~SamplerTimer() { stop(); }

bool SamplerTimer::set(int seconds, std::function<void()> fire) {
  std::lock_guard lock(mutex_);
  if (seconds == seconds_) return false;
  seconds_ = seconds;
  if (timer_) timer_->invalidate();
  timer_.reset();
  if (seconds > 0) {
    timer_ = Timer::scheduled(seconds, true, [fire = std::move(fire)](Timer&) { fire(); });
  }
  return true;
}

int SamplerTimer::seconds() const {
  std::lock_guard lock(mutex_);
  return seconds_;
}

void SamplerTimer::stop() {
  std::lock_guard lock(mutex_);
  if (timer_) timer_->invalidate();
  timer_.reset();
}

}  // namespace vexa
