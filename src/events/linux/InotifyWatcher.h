#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "events/EventStream.h"
#include "events/linux/InotifyTranslator.h"
#include "events/linux/InotifyWatchTable.h"
#include "util/UniqueFd.h"

namespace vexa {

// Recursive watching of directory trees with inotify: one watch per directory, kept in step as
// directories appear, move and vanish, with events numbered by a 64-bit counter and delivered in
// batches on a run loop.
//
// One subscriber at a time (the process's one stream). The watches outlive a subscription for a
// grace period, so that a stream restarted over a changed set of trees keeps the watches it
// shares with the old one and loses no event in between: events that arrive while nobody is
// subscribed are kept for the next subscriber (those newer than its starting identifier).
//
// The watcher's thread sleeps in poll() while nothing happens. Queue overflow is logged and
// repaired by crawling the trees again; hitting the per-user watch limit is logged once, naming
// the sysctl to raise, and the directories already watched keep being served.
//
// This class does the descriptor work (reads, watches, crawls) and the batching; what records
// mean is InotifyTranslator's, and which watch is which folder InotifyWatchTable's.
class InotifyWatcher : public std::enable_shared_from_this<InotifyWatcher>,
                       private InotifyTranslator::Effects {
 public:
  struct Options {
    std::chrono::milliseconds grace{5000};  // watches kept after the last unsubscribe
    size_t maxPending = 1 << 20;            // events kept at most while undelivered
    bool ownThread = true;                  // false: the owner turns the watcher by calling step()
  };

  static std::shared_ptr<InotifyWatcher> create(Options options);
  static std::shared_ptr<InotifyWatcher> create() { return create(Options{}); }
  ~InotifyWatcher() override;
  InotifyWatcher(const InotifyWatcher&) = delete;
  InotifyWatcher& operator=(const InotifyWatcher&) = delete;

  // Makes `roots` the watched trees. Events with an identifier up to `sinceWhen` are not
  // delivered (kEventIdSinceNow: only events from now on); identifiers continue after it.
  // Answers a token for unsubscribe.
  uint64_t subscribe(const std::vector<std::string>& roots, uint64_t sinceWhen, double latency,
                     RunLoop loop, EventStream::Callback callback);
  void unsubscribe(uint64_t token);

  uint64_t latestEventId() const { return lastId_.load(); }
  // Waits until the watches of the newest subscription are in place.
  bool waitUntilSettled(std::chrono::milliseconds timeout);
  size_t watchCount() const;
  // True once the per-user watch limit stopped a directory from being watched.
  bool watchLimitReached() const { return watchLimitReached_.load(); }

  // One turn: apply a new subscription, wait for kernel events (at most `maxWaitMs`, -1 for as
  // long as nothing is due), read and translate them, settle a move whose second half is
  // overdue, hand over a due batch. Answers false once
  // the watcher is stopping. The watcher's own thread is a loop of these.
  bool step(int maxWaitMs = -1);

 private:
  struct Subscription {
    uint64_t token = 0;
    std::vector<std::string> roots;
    uint64_t sinceWhen = kEventIdSinceNow;
    double latency = 1.0;
    std::optional<RunLoop> loop;
    EventStream::Callback callback;
    bool active = false;
  };
  explicit InotifyWatcher(Options options);
  void threadMain();
  void reconcile();
  void wake();
  // Reads everything queued; answers whether there was anything.
  bool readEvents();
  int addWatch(const std::string& path, uint32_t mask);
  void publishWatchCount();
  void deliverDue();
  void deliverOnLoop();
  static bool underRoots(const std::string& path, const std::vector<std::string>& roots);

  // InotifyTranslator::Effects, on the watcher's thread.
  void emit(const std::string& path, uint32_t flags) override;
  void emitRename(const std::string& from, const std::string& to, uint32_t flags) override;
  void emitLocked(const std::string& path, uint32_t flags);  // mutex_ held
  void watchTree(const std::string& root, bool reportContents) override;
  bool releaseWatch(int wd) override;
  void overflowed() override;

  const Options options_;
  UniqueFd inotifyFd_;
  UniqueFd wakeFd_;
  std::thread thread_;

  // Shared with subscribers and the loop; guarded by mutex_.
  mutable std::mutex mutex_;
  std::condition_variable settled_;
  Subscription subscription_;
  uint64_t requestedGeneration_ = 0;
  uint64_t settledGeneration_ = 0;
  std::vector<FsEvent> pending_;
  std::chrono::steady_clock::time_point firstPending_;
  bool deliveryPosted_ = false;
  bool stopping_ = false;
  std::optional<std::chrono::steady_clock::time_point> unsubscribedAt_;
  size_t watchCount_ = 0;

  std::atomic<uint64_t> lastId_{0};
  std::atomic<bool> watchLimitReached_{false};

  // The watcher thread's own state.
  // How long the thread pauses after a turn that read events (see threadMain).
  static constexpr std::chrono::milliseconds kBatchPause{3};
  bool readSome_ = false;  // the last turn read events
  uint64_t appliedGeneration_ = 0;
  InotifyWatchTable table_;
  InotifyTranslator translator_{table_, *this};  // its roots are the trees watched
};

}  // namespace vexa
