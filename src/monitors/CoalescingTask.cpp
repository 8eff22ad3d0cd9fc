#include "monitors/CoalescingTask.h"

#include "vexa/util/DispatchQueue.h"

namespace vexa {

CoalescingTask::CoalescingTask(DispatchQueue& queue, std::function<void()> work)
    : queue_(queue), state_(std::make_shared<State>()) {
  state_->work = std::move(work);
}

void CoalescingTask::request() {
  {
    std::lock_guard lock(state_->mutex);
    if (state_->running) {
      state_->again = true;
      return;
    }
    state_->running = true;
  }
  queue_.async([state = state_] { run(state); });
}

void CoalescingTask::run(const std::shared_ptr<State>& state) {
  for (;;) {
    state->work();
    std::lock_guard lock(state->mutex);
    if (!state->again) {
      state->running = false;
      return;
    }
    state->again = false;
  }
}

}  // namespace vexa
