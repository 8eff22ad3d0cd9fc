#pragma once

#include <functional>
#include <memory>
#include <string>

#include "vexa/Export.h"

namespace vexa {

// A queue of work items, in the manner of the platform's dispatch queues.
//
// global() is the process-wide concurrent queue of default priority: a pool of worker threads
// that grows while work waits (up to a fixed ceiling) and lets idle workers go after a few
// seconds, so an idle process holds no pool threads. Named queues run on that pool too: a serial
// queue runs one item at a time in submission order; a concurrent queue runs its items in
// parallel. main() posts to the main thread's run loop.
//
// Every operation is safe from any thread. Work items must not throw; one that does is caught
// and logged so that it cannot take the process down.
class VEXA_EXPORT DispatchQueue {
 public:
  enum class Kind { Serial, Concurrent };

  static DispatchQueue& global();
  static DispatchQueue& main();

  DispatchQueue(std::string label, Kind kind);
  ~DispatchQueue();
  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;

  const std::string& label() const;
  Kind kind() const;

  void async(std::function<void()> fn);
  // Runs fn on this queue no sooner than `seconds` from now.
  void after(double seconds, std::function<void()> fn);
  // Runs fn on this queue and waits for it. Must not be called from this queue's own work on a
  // serial queue (that would wait for itself).
  void sync(const std::function<void()>& fn);

  struct Impl;

 private:
  explicit DispatchQueue(std::shared_ptr<Impl> impl);
  std::shared_ptr<Impl> impl_;
};

}  // namespace vexa
