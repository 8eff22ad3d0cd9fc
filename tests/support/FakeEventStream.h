#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "events/EventStream.h"

namespace vexa::test {

// Holds start() while closed, so that a test can act while a stream restart is under way. Open
// unless closed; safe from any thread.
class StartGate {
 public:
  void close() {
    std::lock_guard lock(mutex_);
    open_ = false;
  }
  void open() {
    std::lock_guard lock(mutex_);
    open_ = true;
    cv_.notify_all();
  }
  // Until a start() waits at the closed gate, or the timeout passes.
  bool waitUntilHolding(std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, timeout, [&] { return holding_ > 0; });
  }
  // Called by start().
  void pass() {
    std::unique_lock lock(mutex_);
    ++holding_;
    cv_.notify_all();
    cv_.wait(lock, [&] { return open_; });
    --holding_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable cv_;
  bool open_ = true;
  int holding_ = 0;
};

// An event stream service that records what it is asked for; the test plays the kernel.
struct FakeStreamLog {
  struct Created {
    std::vector<std::string> paths;
    uint64_t sinceWhen;
    double latency;
  };
  std::vector<Created> created;
  int started = 0;
  int stopped = 0;
  uint64_t latestId = 0;
  EventStream::Callback callback;  // of the newest stream
  StartGate startGate;
};

class FakeEventStream : public EventStream {
 public:
  explicit FakeEventStream(std::shared_ptr<FakeStreamLog> log) : log_(std::move(log)) {}
  bool start() override {
    log_->startGate.pass();
    ++log_->started;
    return true;
  }
  void stop() override { ++log_->stopped; }
  void invalidate() override {}
  uint64_t latestEventId() const override { return log_->latestId; }

 private:
  std::shared_ptr<FakeStreamLog> log_;
};

class FakeEventStreamFactory : public EventStreamFactory {
 public:
  explicit FakeEventStreamFactory(std::shared_ptr<FakeStreamLog> log) : log_(std::move(log)) {}
  std::unique_ptr<EventStream> create(const std::vector<std::string>& paths, uint64_t sinceWhen,
                                      double latency, RunLoop, EventStream::Callback cb) override {
    log_->created.push_back({paths, sinceWhen, latency});
    log_->callback = std::move(cb);
    return std::make_unique<FakeEventStream>(log_);
  }

 private:
  std::shared_ptr<FakeStreamLog> log_;
};

}  // namespace vexa::test
