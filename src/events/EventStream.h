#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vexa/util/RunLoop.h"

namespace vexa {

// One file-system event: a path, its flag word and its identifier.
struct FsEvent {
  std::string path;
  uint32_t flags = 0;
  uint64_t id = 0;
};

// Flag bits of FsEvent::flags.
namespace fsevent {
constexpr uint32_t kMustScanSubDirs = 0x1;
constexpr uint32_t kRootChanged = 0x20;
constexpr uint32_t kItemCreated = 0x100;
constexpr uint32_t kItemRemoved = 0x200;
constexpr uint32_t kItemRenamed = 0x800;
constexpr uint32_t kItemModified = 0x1000;
constexpr uint32_t kItemIsFile = 0x10000;
constexpr uint32_t kItemIsDir = 0x20000;
}  // namespace fsevent

// "Only events from now on" as a starting identifier.
constexpr uint64_t kEventIdSinceNow = ~uint64_t{0};

// A recursive event stream over a set of directory trees. Batches are delivered on the run loop
// given at creation, no sooner than the latency after their first event.
class EventStream {
 public:
  using Callback = std::function<void(const std::vector<FsEvent>& batch)>;
  virtual ~EventStream() = default;

  virtual bool start() = 0;
  virtual void stop() = 0;
  virtual void invalidate() = 0;
  // The identifier of the newest event the stream has seen (or its starting point).
  virtual uint64_t latestEventId() const = 0;
};

class EventStreamFactory {
 public:
  virtual ~EventStreamFactory() = default;
  // `sinceWhen` is the last identifier already handled, or kEventIdSinceNow.
  virtual std::unique_ptr<EventStream> create(const std::vector<std::string>& paths,
                                              uint64_t sinceWhen, double latency, RunLoop loop,
                                              EventStream::Callback callback) = 0;
};

// The platform's stream (inotify on Linux).
std::unique_ptr<EventStreamFactory> makePlatformEventStreamFactory();

}  // namespace vexa
