#pragma once

#include <memory>
#include <string>
#include <vector>

#include "events/EventStream.h"

namespace vexa::test {

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
};

class FakeEventStream : public EventStream {
 public:
  explicit FakeEventStream(std::shared_ptr<FakeStreamLog> log) : log_(std::move(log)) {}
  bool start() override {
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
