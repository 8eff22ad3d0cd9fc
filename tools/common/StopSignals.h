#pragma once

#include <pthread.h>
#include <signal.h>

#include <thread>

#include "vexa/util/RunLoop.h"

namespace vexa::tools {

// SIGINT and SIGTERM as a program's request to stop. Made first thing in main(), before any
// thread starts, so that every thread inherits the blocked signals; a thread of its own then
// takes them with sigwait(), and the main loop sleeps without wake-ups until there is work or a
// stop request.
class StopSignals {
 public:
  StopSignals() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  }

  // The first stop signal quits the loop's run().
  void quitOnSignal(const RunLoop& loop) const {
    std::thread([signals = signals_, loop] {
      int signal = 0;
      sigwait(&signals, &signal);
      loop.quit();
    }).detach();
  }

 private:
  sigset_t signals_;
};

}  // namespace vexa::tools
