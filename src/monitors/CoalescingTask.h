#pragma once

#include <functional>
#include <memory>
#include <mutex>

namespace vexa {

class DispatchQueue;

// Runs one piece of work on a queue, one run at a time: asking while it runs asks for exactly
// one more run after it, however often it is asked, so a burst of events costs at most two.
// Safe from any thread; runs already queued finish even if the task is destroyed.
class CoalescingTask {
 public:
  CoalescingTask(DispatchQueue& queue, std::function<void()> work);
  void request();

 private:
  struct State {
    std::function<void()> work;
    std::mutex mutex;  // guards the two flags
    bool running = false;
    bool again = false;
  };
  static void run(const std::shared_ptr<State>& state);

  DispatchQueue& queue_;
  std::shared_ptr<State> state_;
};

}  // namespace vexa
