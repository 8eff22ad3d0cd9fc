// One sample of the memory and the CPU sampler on this machine, with a delegate that takes the
// figures, against the floor: pread of the same /proc files through descriptors opened once.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>
#include <memory>
#include <vector>

#include "vexa/status/CPUStatus.h"
#include "vexa/status/MemoryStatus.h"

namespace {

class Sink : public vexa::MemoryDelegate, public vexa::CPUDelegate {
 public:
  void updateMemoryStatus(const nlohmann::json& memory, const nlohmann::json& vm,
                          const std::optional<nlohmann::json>& swap) override {
    benchmark::DoNotOptimize(memory.size() + vm.size() + (swap ? 1 : 0));
  }
  void cpuUsedWithCore(uint32_t core, float system, float user, float idle) override {
    benchmark::DoNotOptimize(core + system + user + idle);
  }
};

// Reads the files through descriptors opened once: the least a sample can cost.
void preadFloor(benchmark::State& state, std::initializer_list<const char*> paths) {
  std::vector<int> fds;
  for (const char* path : paths) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) fds.push_back(fd);
  }
  char buffer[16384];
  for (auto _ : state) {
    for (int fd : fds) benchmark::DoNotOptimize(::pread(fd, buffer, sizeof buffer, 0));
  }
  for (int fd : fds) ::close(fd);
}

void MemorySample_library(benchmark::State& state) {
  auto memory = vexa::MemoryStatus::create("/");
  memory->setFreshInterval(0);
  memory->setDelegate(std::make_shared<Sink>());
  for (auto _ : state) memory->updateInfo();
}

void MemorySample_floor(benchmark::State& state) {
  preadFloor(state, {"/proc/meminfo", "/proc/vmstat"});
}

void CpuSample_library(benchmark::State& state) {
  auto cpu = vexa::CPUStatus::create("/");
  cpu->setFreshInterval(0);
  cpu->setDelegate(std::make_shared<Sink>());
  for (auto _ : state) cpu->updateInfo();
}

void CpuSample_floor(benchmark::State& state) {
  preadFloor(state, {"/proc/stat", "/proc/loadavg"});
}

}  // namespace

BENCHMARK(MemorySample_library)->Name("MemorySample/library");
BENCHMARK(MemorySample_floor)->Name("MemorySample/floor");
BENCHMARK(CpuSample_library)->Name("CpuSample/library");
BENCHMARK(CpuSample_floor)->Name("CpuSample/floor");
