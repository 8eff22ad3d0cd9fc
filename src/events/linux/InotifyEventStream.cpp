// The platform event stream on Linux: a view of the process's one InotifyWatcher.
#include <mutex>

#include "events/EventStream.h"
#include "events/linux/InotifyWatcher.h"

namespace vexa {

namespace {

class InotifyEventStream final : public EventStream {
 public:
  InotifyEventStream(std::shared_ptr<InotifyWatcher> watcher, std::vector<std::string> paths,
                     uint64_t sinceWhen, double latency, RunLoop loop, Callback callback)
      : watcher_(std::move(watcher)),
        paths_(std::move(paths)),
        sinceWhen_(sinceWhen),
        latency_(latency),
        loop_(std::move(loop)),
        callback_(std::move(callback)) {}
  ~InotifyEventStream() override { stop(); }

  bool start() override {
    if (token_) return true;
    token_ = watcher_->subscribe(paths_, sinceWhen_, latency_, loop_, callback_);
    // Returns once the new trees are watched, so that nothing done after start() is missed.
    // Trees the previous stream watched already cost nothing here.
    return watcher_->waitUntilSettled(std::chrono::minutes(2));
  }
  void stop() override {
    if (!token_) return;
    watcher_->unsubscribe(token_);
    token_ = 0;
  }
  void invalidate() override { callback_ = nullptr; }
  uint64_t latestEventId() const override { return watcher_->latestEventId(); }

 private:
  std::shared_ptr<InotifyWatcher> watcher_;
  std::vector<std::string> paths_;
  uint64_t sinceWhen_;
  double latency_;
  RunLoop loop_;
  Callback callback_;
  uint64_t token_ = 0;
};

class InotifyEventStreamFactory final : public EventStreamFactory {
 public:
  std::unique_ptr<EventStream> create(const std::vector<std::string>& paths, uint64_t sinceWhen,
                                      double latency, RunLoop loop,
                                      EventStream::Callback callback) override {
    std::lock_guard lock(mutex_);
    if (!watcher_) watcher_ = InotifyWatcher::create();
    if (!watcher_) return nullptr;
    return std::make_unique<InotifyEventStream>(watcher_, paths, sinceWhen, latency,
                                                std::move(loop), std::move(callback));
  }

 private:
  std::mutex mutex_;
  std::shared_ptr<InotifyWatcher> watcher_;
};

}  // namespace

std::unique_ptr<EventStreamFactory> makePlatformEventStreamFactory() {
  return std::make_unique<InotifyEventStreamFactory>();
}

}  // namespace vexa
