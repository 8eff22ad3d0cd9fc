// vexa-agent: the background agent. It keeps the main run loop turning for the library's
// monitors and stops cleanly on SIGINT or SIGTERM.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <thread>

#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--verbose") == 0) {
      vexa::SystemLog::setMirrorToStderr(true);
    } else {
      std::fprintf(stderr, "usage: vexa-agent [--verbose]\n");
      return 2;
    }
  }

  // The stop signals are taken by a thread of their own, so the main loop sleeps without
  // wake-ups until there is work or a stop request.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  vexa::RunLoop loop = vexa::RunLoop::main();
  std::thread([stopSignals, loop] {
    int signal = 0;
    sigwait(&stopSignals, &signal);
    loop.quit();
  }).detach();

  std::printf("vexa-agent running (pid %d); stop with Ctrl-C\n", static_cast<int>(getpid()));
  std::fflush(stdout);
  loop.run();
  vexa::SystemLog::log("vexa-agent stopping");
  std::printf("vexa-agent stopped\n");
  return 0;
}
