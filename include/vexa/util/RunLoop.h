#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "vexa/Export.h"

namespace vexa {

// A thread's run loop: the place where timers fire and posted work runs for that thread.
//
// The main run loop is the process's global default loop; the host (or vexa-agent) keeps it
// turning with run(). Any other thread gets a loop of its own the first time it asks for
// current(); it lives until the thread ends. A RunLoop value is a cheap shared handle and may be
// copied to and used from any thread.
class VEXA_EXPORT RunLoop {
 public:
  // The loop of the process's main thread.
  static RunLoop main();
  // The loop of the calling thread (the main loop when called on the main thread).
  static RunLoop current();
  // True on the thread that owns the main loop (the process's initial thread).
  static bool isMainThread();

  // Queues fn to run on this loop's thread at its next turn. Never runs fn synchronously, even
  // when called from the loop's own thread. Safe from any thread.
  void post(std::function<void()> fn) const;

  // Turns the loop on the calling thread until quit() is called. Must be called on the loop's
  // own thread.
  void run() const;
  // Makes the innermost run() of this loop return. Safe from any thread.
  void quit() const;

  // Turns the loop until done() is true or the timeout passes; answers done()'s last value.
  // done() is checked after every dispatched source and at least every 20 ms, so it may also
  // watch state changed by other threads.
  bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) const;

  // Runs one turn of the loop; blocks for the next event when mayBlock is true. Answers whether
  // anything was dispatched.
  bool iterate(bool mayBlock) const;

  bool operator==(const RunLoop& other) const { return impl_ == other.impl_; }

  struct Impl;
  explicit RunLoop(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
  const std::shared_ptr<Impl>& impl() const { return impl_; }

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace vexa
