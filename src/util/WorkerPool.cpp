#include "util/WorkerPool.h"

#include <thread>

#include "util/RunGuarded.h"

namespace vexa {

WorkerPool& WorkerPool::shared() {
  // Leaked on purpose: work may still be running while static destructors run at exit.
  static WorkerPool* pool = new WorkerPool(64, std::chrono::seconds(5));
  return *pool;
}

WorkerPool::WorkerPool(std::size_t maxThreads, std::chrono::milliseconds idleTimeout)
    : maxThreads_(maxThreads == 0 ? 1 : maxThreads), idleTimeout_(idleTimeout) {}

WorkerPool::~WorkerPool() {
  std::unique_lock lock(mutex_);
  stopping_ = true;
  delayed_.clear();
  workAvailable_.notify_all();
  schedulerWake_.notify_all();
  allExited_.wait(lock, [this] { return threads_ == 0 && !schedulerRunning_; });
}

void WorkerPool::submit(std::function<void()> fn) {
  std::lock_guard lock(mutex_);
  items_.push_back(std::move(fn));
  if (items_.size() > idle_ && threads_ < maxThreads_) {
    startWorkerLocked();
  } else {
    workAvailable_.notify_one();
  }
}

void WorkerPool::submitAt(Clock::time_point when, std::function<void()> fn, bool handOff) {
  std::lock_guard lock(mutex_);
  if (stopping_) return;
  const bool earliest = delayed_.empty() || when < delayed_.begin()->first;
  delayed_.emplace(when, Delayed{std::move(fn), handOff});
  if (!schedulerRunning_) {
    schedulerRunning_ = true;
    std::thread([this] { schedulerLoop(); }).detach();
  } else if (earliest) {
    schedulerWake_.notify_one();
  }
}

std::size_t WorkerPool::threadCount() const {
  std::lock_guard lock(mutex_);
  return threads_;
}

void WorkerPool::startWorkerLocked() {
  ++threads_;
  std::thread([this] { workerLoop(); }).detach();
}

void WorkerPool::workerLoop() {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (items_.empty()) {
      if (stopping_) break;
      ++idle_;
      const bool woken = workAvailable_.wait_for(lock, idleTimeout_,
                                                 [this] { return !items_.empty() || stopping_; });
      --idle_;
      if (!woken) break;
      continue;
    }
    std::function<void()> fn = std::move(items_.front());
    items_.pop_front();
    lock.unlock();
    runGuarded("worker pool", fn);
    fn = nullptr;  // release captures outside the lock
    lock.lock();
  }
  if (--threads_ == 0) allExited_.notify_all();
}

void WorkerPool::schedulerLoop() {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (stopping_) break;
    if (delayed_.empty()) {
      if (!schedulerWake_.wait_for(lock, idleTimeout_,
                                   [this] { return !delayed_.empty() || stopping_; })) {
        break;
      }
      continue;
    }
    auto first = delayed_.begin();
    // A copy: the item may be gone (destructor, earlier item) while the wait has the lock free.
    const Clock::time_point due = first->first;
    if (Clock::now() < due) {
      schedulerWake_.wait_until(lock, due);
      continue;
    }
    std::function<void()> fn = std::move(first->second.fn);
    const bool handOff = first->second.handOff;
    delayed_.erase(first);
    if (handOff) {
      // Passed on here, so that items due together reach their queue in deadline order.
      lock.unlock();
      fn();
      fn = nullptr;  // whatever it holds goes without the lock
      lock.lock();
      continue;
    }
    items_.push_back(std::move(fn));
    if (items_.size() > idle_ && threads_ < maxThreads_) {
      startWorkerLocked();
    } else {
      workAvailable_.notify_one();
    }
  }
  schedulerRunning_ = false;
  allExited_.notify_all();
}

}  // namespace vexa
