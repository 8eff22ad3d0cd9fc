#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "vexa/Export.h"
#include "vexa/status/PasteboardMonitorDelegate.h"

namespace vexa {

class Pasteboard;
class Timer;

// Tells its delegate when the clipboard's contents changed. The clipboard announces nothing by
// itself to its readers, so the monitor looks at its change counter every 0.75 seconds on the
// run loop of the thread that called start(): when the counter grew since the previous look,
// the delegate hears about it once, however many changes there were. A counter that went down
// (the clipboard's server was replaced) is only remembered; its next growth is reported.
class VEXA_EXPORT PasteboardMonitor {
 public:
  using PasteboardSource = std::function<std::shared_ptr<Pasteboard>()>;

  // The process's one monitor, of the session's clipboard.
  static PasteboardMonitor& shared();
  // A monitor of the clipboard `source` hands out each time the monitor starts.
  explicit PasteboardMonitor(PasteboardSource source);
  ~PasteboardMonitor();
  PasteboardMonitor(const PasteboardMonitor&) = delete;
  PasteboardMonitor& operator=(const PasteboardMonitor&) = delete;

  // Not retained: a delegate that is gone hears nothing.
  std::shared_ptr<PasteboardMonitorDelegate> delegate() const;
  void setDelegate(std::weak_ptr<PasteboardMonitorDelegate> delegate);

  // Takes the clipboard and looks at it every 0.75 seconds on the calling thread's run loop,
  // which must turn. Does nothing while already running.
  void start();
  // Ends the looks and lets the clipboard go. The counter last seen is kept for the next start.
  void stop();
  bool isRunning() const;
  // One look: reports when the counter is above the one seen last, then remembers it. Nothing
  // while stopped.
  void checkPasteboard();
  int64_t lastChangeCount() const;

 private:
  PasteboardSource source_;
  mutable std::mutex lock_;
  std::weak_ptr<PasteboardMonitorDelegate> delegate_;
  std::shared_ptr<Pasteboard> pb_;
  std::shared_ptr<Timer> monitorTimer_;
  int64_t lastChangeCount_ = 0;
};

}  // namespace vexa
