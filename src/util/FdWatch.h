#pragma once

#include <functional>
#include <memory>

#include "vexa/util/RunLoop.h"

namespace vexa {

// Calls `ready` on a run loop's thread whenever a descriptor has something to read, an error or
// a hang-up to report, until the watch is destroyed. `ready` must consume what woke it (read
// until EAGAIN, or take the error), or it is called again at once.
//
// The descriptor stays the caller's. Destruction is safe from any thread; after it, `ready` is
// not started again, though a call already running on the loop's thread may still finish, so
// what `ready` uses (the descriptor among it) should be owned by `ready` itself.
class FdWatch {
 public:
  ~FdWatch();
  FdWatch(const FdWatch&) = delete;
  FdWatch& operator=(const FdWatch&) = delete;

  static std::unique_ptr<FdWatch> start(const RunLoop& loop, int fd, std::function<void()> ready);

  struct Impl;

 private:
  explicit FdWatch(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace vexa
