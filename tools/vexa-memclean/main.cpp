// vexa-memclean: the child a memory cleaning runs in. It asks the kernel to pick it first when
// memory runs out (oom_score_adj 1000), then fills and frees memory within the cleaning budget
// for up to ten seconds. SIGTERM ends it at once.
//
//   vexa-memclean [--sysroot DIR] [--old-system 0|1]
#include <cstdio>
#include <cstring>
#include <string>

#include "vexa/status/MemoryCleaning.h"

int main(int argc, char** argv) {
  std::string root = "/";
  int oldSystem = 0;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--sysroot") == 0) {
      root = argv[i + 1];
    } else if (std::strcmp(argv[i], "--old-system") == 0) {
      oldSystem = std::strcmp(argv[i + 1], "1") == 0 ? 1 : 0;
    } else {
      std::fprintf(stderr, "usage: vexa-memclean [--sysroot DIR] [--old-system 0|1]\n");
      return 2;
    }
  }
  if (FILE* adjust = std::fopen("/proc/self/oom_score_adj", "we")) {
    std::fputs("1000\n", adjust);
    std::fclose(adjust);
  }
  return memclean_run(root.c_str(), oldSystem);
}
