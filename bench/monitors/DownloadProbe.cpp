// Times the download and install-package monitors' file work for download-bench.sh:
//   download-probe inventory DIR RUNS   the package inventory of DIR (find, as the monitor runs
//                                       it), RUNS times; prints the paths found and the seconds
//   download-probe inventory-helper DIR RUNS   the same, always through the privileged helper
//   download-probe folders HOME RUNS    the browsers' download folders read from HOME's
//                                       settings files, RUNS times; prints the seconds
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "monitors/BrowserFolders.h"
#include "monitors/FindInventory.h"

namespace {

double seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: download-probe inventory|inventory-helper|folders DIR RUNS\n");
    return 2;
  }
  const std::string mode = argv[1], dir = argv[2];
  const int runs = std::atoi(argv[3]);
  const auto start = std::chrono::steady_clock::now();
  size_t found = 0;
  if (mode == "inventory" || mode == "inventory-helper") {
    // The helper is asked when find cannot start here: a local run that never starts.
    const vexa::FindInventory find =
        mode == "inventory"
            ? vexa::FindInventory()
            : vexa::FindInventory([](const auto&) { return vexa::ProcessRunner::Result{}; },
                                  vexa::FindInventory::askHelper());
    const std::string cmd = vexa::FindInventory::command(
        dir, "f",
        {"*.dmg", "*.pkg", "*.deb", "*.rpm", "*.snap", "*.flatpak", "*.flatpakref", "*.run"});
    for (int i = 0; i < runs; ++i) found = find.run(cmd).size();
  } else if (mode == "folders") {
    const vexa::BrowserFolders folders({dir, dir + "/.config", dir + "/.local/share/Preferences",
                                        dir + "/Downloads", dir + "/Desktop"});
    for (int i = 0; i < runs; ++i) found = folders.read().size();
  } else {
    return 2;
  }
  std::printf("%zu %.6f\n", found, seconds(start));
  return 0;
}
