#include "vexa/util/DispatchQueue.h"

#include <condition_variable>
#include <deque>
#include <mutex>

#include "util/RunGuarded.h"
#include "util/WorkerPool.h"
#include "vexa/util/RunLoop.h"

namespace vexa {

struct DispatchQueue::Impl : std::enable_shared_from_this<DispatchQueue::Impl> {
  Impl(std::string l, Kind k, bool m) : label(std::move(l)), kind(k), onMainLoop(m) {}

  void async(std::function<void()> fn) {
    if (onMainLoop) {
      RunLoop::main().post(std::move(fn));
    } else if (kind == Kind::Concurrent) {
      WorkerPool::shared().submit(std::move(fn));
    } else {
      std::lock_guard lock(mutex);
      items.push_back(std::move(fn));
      if (draining) return;
      draining = true;
      WorkerPool::shared().submit([self = shared_from_this()] { self->drain(); });
    }
  }

  // Runs a serial queue's items one after another on one pool thread until none is left.
  void drain() {
    std::unique_lock lock(mutex);
    while (!items.empty()) {
      std::function<void()> fn = std::move(items.front());
      items.pop_front();
      lock.unlock();
      runGuarded(label.c_str(), fn);
      fn = nullptr;
      lock.lock();
    }
    draining = false;
  }

  const std::string label;
  const Kind kind;
  const bool onMainLoop;
  std::mutex mutex;
  std::deque<std::function<void()>> items;
  bool draining = false;
};

DispatchQueue::DispatchQueue(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

DispatchQueue::DispatchQueue(std::string label, Kind kind)
    : impl_(std::make_shared<Impl>(std::move(label), kind, false)) {}

DispatchQueue::~DispatchQueue() = default;

DispatchQueue& DispatchQueue::global() {
  static DispatchQueue* queue =
      new DispatchQueue(std::make_shared<Impl>("vexa.global", Kind::Concurrent, false));
  return *queue;
}

DispatchQueue& DispatchQueue::main() {
  static DispatchQueue* queue =
      new DispatchQueue(std::make_shared<Impl>("vexa.main", Kind::Serial, true));
  return *queue;
}

const std::string& DispatchQueue::label() const { return impl_->label; }

DispatchQueue::Kind DispatchQueue::kind() const { return impl_->kind; }

void DispatchQueue::async(std::function<void()> fn) { impl_->async(std::move(fn)); }

void DispatchQueue::after(double seconds, std::function<void()> fn) {
  const auto delay = std::chrono::duration_cast<WorkerPool::Clock::duration>(
      std::chrono::duration<double>(seconds > 0 ? seconds : 0));
  WorkerPool::shared().submitAt(
      WorkerPool::Clock::now() + delay,
      [impl = impl_, fn = std::move(fn)]() mutable { impl->async(std::move(fn)); },
      /*handOff=*/true);
}

void DispatchQueue::sync(const std::function<void()>& fn) {
  if (impl_->onMainLoop && RunLoop::isMainThread()) {
    fn();
    return;
  }
  std::mutex m;
  std::condition_variable cv;
  bool done = false;
  impl_->async([&] {
    runGuarded(impl_->label.c_str(), fn);
    std::lock_guard lock(m);
    done = true;
    cv.notify_one();
  });
  std::unique_lock lock(m);
  cv.wait(lock, [&] { return done; });
}

}  // namespace vexa
