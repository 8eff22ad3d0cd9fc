// Runs the benchmarks, then prints each "floor" pair as a ratio: a benchmark named
// "X/library" is compared with "X/floor" measured in the same run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

namespace {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
        times_[run.benchmark_name()] = run.GetAdjustedRealTime();
      }
    }
  }
  void PrintRatios() const {
    std::printf("\nratios (library time / floor time, same run):\n");
    for (const auto& [name, time] : times_) {
      const size_t at = name.find("/library");
      if (at == std::string::npos) continue;
      std::string floorName = name;
      floorName.replace(at, 8, "/floor");
      auto floor = times_.find(floorName);
      if (floor == times_.end() || floor->second <= 0) continue;
      std::printf("  %-40s %.3f\n", name.substr(0, at).c_str(), time / floor->second);
    }
  }

 private:
  std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  benchmark::Shutdown();
  return 0;
}
