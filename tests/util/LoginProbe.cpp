// A program that is its own main bundle: "install", "delete" and "has" act on its login item;
// started without arguments (as the desktop starts it at login) it writes $VEXA_PROBE_MARKER.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vexa/util/StartManager.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    const char* marker = std::getenv("VEXA_PROBE_MARKER");
    FILE* out = marker ? std::fopen(marker, "w") : nullptr;
    if (!out) return 1;
    std::fputs("started\n", out);
    return std::fclose(out) == 0 ? 0 : 1;
  }
  if (std::strcmp(argv[1], "install") == 0) {
    vexa::StartManager().setLaunchAtLogin(true);
  } else if (std::strcmp(argv[1], "delete") == 0) {
    vexa::StartManager().setLaunchAtLogin(false);
  }
  return vexa::StartManager::hasDaemon() ? 0 : 3;
}
