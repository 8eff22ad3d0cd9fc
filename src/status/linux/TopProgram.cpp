#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "status/MachineFiles.h"
#include "status/TopScreen.h"
#include "vexa/status/TopProgram.h"

namespace vexa {
namespace {

int usage() {
  std::fprintf(stderr,
               "usage: vexa-top -stats COLUMNS [-s SECONDS] [-l SCREENS] [-pid PID]...\n"
               "columns: pid,cpu,mem,purg,cmprs,msgsent,msgrecv,power\n");
  return 2;
}

bool writeAll(const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t wrote = ::write(STDOUT_FILENO, text.data() + done, text.size() - done);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) return false;
    done += static_cast<size_t>(wrote);
  }
  return true;
}

}  // namespace
}  // namespace vexa

int vexatop_run(int argc, char** argv) {
  std::optional<std::vector<vexa::TopScreen::Column>> columns;
  double interval = 1;
  long screens = 0;
  std::vector<int32_t> only;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    const char* value = argv[i + 1];
    char* end = nullptr;
    if (option == "-stats") {
      columns = vexa::TopScreen::parseColumns(value);
      if (!columns) return vexa::usage();
    } else if (option == "-s") {
      interval = std::strtod(value, &end);
      if (*end != '\0' || !(interval > 0)) return vexa::usage();
    } else if (option == "-l") {
      screens = std::strtol(value, &end, 10);
      if (*end != '\0' || screens < 0) return vexa::usage();
    } else if (option == "-pid") {
      const long pid = std::strtol(value, &end, 10);
      if (*end != '\0' || pid <= 0) return vexa::usage();
      only.push_back(static_cast<int32_t>(pid));
    } else {
      return vexa::usage();
    }
  }
  if (argc % 2 == 0 || !columns) return vexa::usage();

  // Nothing here waits with select(): the screens may keep many descriptors.
  vexa::TopScreen::raiseDescriptorLimit();
  vexa::TopScreen screen(vexa::MachineFiles::underRoot("/"), ::getuid(),
                         static_cast<double>(::sysconf(_SC_CLK_TCK)), *columns);
  const auto period = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(interval));
  auto next = std::chrono::steady_clock::now();
  for (long shown = 0; screens == 0 || shown < screens; ++shown) {
    if (shown > 0) std::this_thread::sleep_until(next);
    next += period;
    // A reader that went away ends the program (SIGPIPE, or EPIPE when it is ignored).
    if (!vexa::writeAll(screen.next(only))) return 1;
  }
  return 0;
}
