// One ProcessStatus sample of ten applications (ten sleeping children), reading /proc in
// process, against the same sample through procps ps (one child per sample, which reads every
// process of the machine); and one vexa-top screen against a plain loop over stat and statm of
// every process.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include <iterator>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "status/LaunchedApplications.h"
#include "status/MachineFiles.h"
#include "status/ProcessTool.h"
#include "status/TopScreen.h"
#include "support/ChildProcess.h"
#include "vexa/status/ProcessStatus.h"
#include "vexa/status/ProcessStatusEx.h"

namespace {

class Children {
 public:
  explicit Children(int count) {
    for (int i = 0; i < count; ++i) {
      children_.push_back(std::make_unique<vexa::test::ChildProcess>(
          std::vector<std::string>{"/bin/sleep", "600"}));
    }
  }
  std::vector<vexa::LaunchedApplications::Record> records() const {
    std::vector<vexa::LaunchedApplications::Record> out;
    for (const auto& child : children_) out.push_back({"Sleep", "/sleep.desktop", child->pid()});
    return out;
  }

 private:
  std::vector<std::unique_ptr<vexa::test::ChildProcess>> children_;
};

class Fixed : public vexa::LaunchedApplications {
 public:
  explicit Fixed(std::vector<Record> records) : records_(std::move(records)) {}
  std::vector<Record> launched() override { return records_; }

 private:
  std::vector<Record> records_;
};

class Sink : public vexa::ProcessStatsDelegate {
 public:
  void updateProcessStaus(const std::optional<std::vector<vexa::ProcessInfo>>& infos) override {
    benchmark::DoNotOptimize(infos ? infos->size() : 0);
  }
};

void sample(benchmark::State& state, std::shared_ptr<vexa::ProcessTool> tool) {
  Children children(10);
  const auto status =
      vexa::ProcessStatus::create(std::make_shared<Fixed>(children.records()), std::move(tool));
  status->setDelegate(std::make_shared<Sink>());
  for (auto _ : state) status->updateInfo();
}

void ProcessSample10_proc(benchmark::State& state) {
  sample(state, vexa::ProcessTool::fromProc(vexa::MachineFiles::underRoot("/")));
}
BENCHMARK(ProcessSample10_proc)->Unit(benchmark::kMicrosecond);

void ProcessSample10_ps(benchmark::State& state) { sample(state, vexa::ProcessTool::psProgram()); }
BENCHMARK(ProcessSample10_ps)->Unit(benchmark::kMicrosecond);

void TopScreen_user(benchmark::State& state) {
  vexa::TopScreen::raiseDescriptorLimit();
  vexa::TopScreen screen(
      vexa::MachineFiles::underRoot("/"), ::getuid(), static_cast<double>(::sysconf(_SC_CLK_TCK)),
      *vexa::TopScreen::parseColumns("pid,cpu,mem,purg,cmprs,msgsent,msgrecv,power"));
  for (auto _ : state) benchmark::DoNotOptimize(screen.next().size());
}
BENCHMARK(TopScreen_user)->Unit(benchmark::kMicrosecond);

// The floor a screen is measured against: a plain loop that opens, reads and closes stat and
// statm of every process, nothing parsed.
void TopScreen_statLoop(benchmark::State& state) {
  char buffer[4096];
  for (auto _ : state) {
    size_t bytes = 0;
    DIR* proc = ::opendir("/proc");
    while (const dirent* entry = ::readdir(proc)) {
      if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
      for (const char* file : {"stat", "statm"}) {
        char path[300];
        std::snprintf(path, sizeof path, "/proc/%s/%s", entry->d_name, file);
        const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0) continue;
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got > 0) bytes += static_cast<size_t>(got);
        ::close(fd);
      }
    }
    ::closedir(proc);
    benchmark::DoNotOptimize(bytes);
  }
}
BENCHMARK(TopScreen_statLoop)->Unit(benchmark::kMicrosecond);

}  // namespace

namespace {

// The sampling patterns alone, as std::regex runs them: a ps answer for ten applications and a
// vexa-top screen of 200 processes.
void countMatches(benchmark::State& state, const char* pattern, const std::string& text) {
  const std::regex regex(pattern);
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::distance(std::sregex_iterator(text.begin(), text.end(), regex),
                                           std::sregex_iterator()));
  }
}

void PsPattern_10lines(benchmark::State& state) {
  std::string text = "    PID %CPU %MEM   RSS    VSZ STAT\n";
  for (int i = 0; i < 10; ++i)
    text += "  " + std::to_string(2000 + i) + "  0.3  0.4 20480 301244 S\n";
  countMatches(state, vexa::ProcessStatus::kPsPattern, text);
}
BENCHMARK(PsPattern_10lines)->Unit(benchmark::kMicrosecond);

void TopPattern_200lines(benchmark::State& state) {
  std::string text = "PID     %CPU    MEM     PURG    CMPRS   MSGSENT MSGRECV POWER\n";
  for (int i = 0; i < 200; ++i) {
    text += std::to_string(2000 + i) + "    12.5    81234K  0B      512K    1500    3200    12.5\n";
  }
  countMatches(state, vexa::ProcessStatusEx::kTopPattern, text);
}
BENCHMARK(TopPattern_200lines)->Unit(benchmark::kMicrosecond);

}  // namespace
