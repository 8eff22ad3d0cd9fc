// A client of the privileged helper for the tests: runs one operation the way a host would and
// prints the outcome. Run under setpriv as an unprivileged user to exercise the helper fall-back.
//   helper-client check | purge | remove PATH | mkfile PATH | chmod PATH OCTAL | round-trips N |
//   find DIR
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "vexa/privileged/BrindleUtility.h"

int main(int argc, char** argv) {
  using vexa::BrindleUtility;
  const std::string op = argc > 1 ? argv[1] : "";
  if (op == "check") return BrindleUtility::checkHelperConnect() ? 0 : 1;
  if (op == "purge") return BrindleUtility::purge() ? 0 : 1;
  if (op == "remove" && argc == 3) return BrindleUtility::remove(argv[2]) ? 0 : 1;
  if (op == "mkfile" && argc == 3) {
    auto made = BrindleUtility::mkfile(argv[2], false);
    if (made) std::printf("%s\n", made->c_str());
    return made ? 0 : 1;
  }
  if (op == "chmod" && argc == 4) {
    return BrindleUtility::chmod(argv[2], std::strtol(argv[3], nullptr, 8)) ? 0 : 1;
  }
  if (op == "find" && argc == 3) {
    const auto start = std::chrono::steady_clock::now();
    size_t lines = 0;
    BrindleUtility::sendMessage(
        {{"command", 12},
         {"launch", "/usr/bin/find"},
         {"cmd", std::string(argv[2]) + BrindleUtility::kArgumentSeparator + "-type" +
                     BrindleUtility::kArgumentSeparator + "f"}},
        [&](bool, const std::optional<std::string>& out) {
          if (out) lines = static_cast<size_t>(std::count(out->begin(), out->end(), '\n'));
        });
    std::printf("files=%zu seconds=%.3f\n", lines,
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    return 0;
  }
  if (op == "round-trips" && argc == 3) {
    const int n = std::atoi(argv[2]);
    std::vector<double> times;
    for (int i = 0; i < n; ++i) {
      const auto start = std::chrono::steady_clock::now();
      BrindleUtility::sendMessage({{"command", 0}}, [](bool, const auto&) {});
      times.push_back(
          std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
              .count());
    }
    std::sort(times.begin(), times.end());
    std::printf("median_us=%.1f p99_us=%.1f\n", times[times.size() / 2],
                times[times.size() * 99 / 100]);
    return 0;
  }
  std::fprintf(stderr, "usage: helper-client check|remove P|mkfile P|chmod P MODE|round-trips N\n");
  return 2;
}
