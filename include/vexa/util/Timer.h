#pragma once

#include <functional>
#include <memory>

#include "vexa/Export.h"
#include "vexa/util/RunLoop.h"

namespace vexa {

// A timer scheduled on a run loop. The loop keeps the timer alive until it is invalidated (or,
// for a one-shot timer, has fired): dropping the returned pointer does not stop it.
class VEXA_EXPORT Timer {
 public:
  using Callback = std::function<void(Timer&)>;

  // Schedules a timer on the calling thread's run loop. The first firing comes after
  // `interval` seconds; a repeating timer then fires every `interval` seconds until invalidated.
  static std::shared_ptr<Timer> scheduled(double interval, bool repeats, Callback fn);
  // The same on a given loop.
  static std::shared_ptr<Timer> scheduledOn(const RunLoop& loop, double interval, bool repeats,
                                            Callback fn);

  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // Stops the timer for good. Safe from any thread and more than once; after it returns the
  // callback is not started again (a firing already under way on the loop's thread finishes).
  void invalidate();
  bool isValid() const;
  double timeInterval() const { return interval_; }

  struct Impl;

 private:
  Timer(double interval, bool repeats);
  double interval_;
  bool repeats_;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vexa
