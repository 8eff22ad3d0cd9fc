#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>

namespace vexa {

// An elastic pool of worker threads with a scheduler for delayed work.
//
// A worker is started whenever more items wait than there are idle workers (up to maxThreads);
// a worker that stays idle for idleTimeout ends, so an idle pool holds no threads. Delayed items
// are kept by one scheduler thread that exists only while such items are pending. Items must not
// throw; one that does is caught and logged.
class WorkerPool {
 public:
  using Clock = std::chrono::steady_clock;

  // The process-wide pool behind the global queue. Never destroyed.
  static WorkerPool& shared();

  WorkerPool(std::size_t maxThreads, std::chrono::milliseconds idleTimeout);
  // Runs every item already submitted (delayed items are dropped) and waits for all threads.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  void submit(std::function<void()> fn);
  // Submits fn when `when` comes. Items fall due in deadline order; with handOff, fn runs on the
  // scheduler thread itself, in that order, and must only pass work on (a queue's async), never
  // block.
  void submitAt(Clock::time_point when, std::function<void()> fn, bool handOff = false);

  // Live worker threads (scheduler not counted).
  std::size_t threadCount() const;

 private:
  void startWorkerLocked();
  void workerLoop();
  void schedulerLoop();

  const std::size_t maxThreads_;
  const std::chrono::milliseconds idleTimeout_;

  mutable std::mutex mutex_;
  std::condition_variable workAvailable_;
  std::condition_variable allExited_;
  std::condition_variable schedulerWake_;
  std::deque<std::function<void()>> items_;
  struct Delayed {
    std::function<void()> fn;
    bool handOff;
  };
  std::multimap<Clock::time_point, Delayed> delayed_;
  std::size_t threads_ = 0;
  std::size_t idle_ = 0;
  bool schedulerRunning_ = false;
  bool stopping_ = false;
};

}  // namespace vexa
