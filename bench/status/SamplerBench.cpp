// One sample of the memory and the CPU sampler on this machine, with a delegate that takes the
// figures, against the floor: pread of the same /proc files through descriptors opened once.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>
#include <memory>
#include <vector>

#include "vexa/status/CPUStatus.h"
#include "vexa/status/DiskStatus.h"
#include "vexa/status/MemoryStatus.h"
#include "vexa/status/NetworkStatus.h"

namespace {

class Sink : public vexa::MemoryDelegate,
             public vexa::CPUDelegate,
             public vexa::DiskDelegate,
             public vexa::NetworkDelegate {
 public:
  void diskDetails(const nlohmann::json& disks) override { benchmark::DoNotOptimize(disks.size()); }
  void networkStatus(const nlohmann::json& services) override {
    benchmark::DoNotOptimize(services.size());
  }
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

void DiskSample_library(benchmark::State& state) {
  auto disk = vexa::DiskStatus::create("/");
  disk->setFreshInterval(0);
  disk->setDelegate(std::make_shared<Sink>());
  for (auto _ : state) disk->updateInfo();
}

void NetworkSample_library(benchmark::State& state) {
  auto network = vexa::NetworkStatus::create("/");
  network->setFreshInterval(0);
  network->setDelegate(std::make_shared<Sink>());
  for (auto _ : state) network->updateInfo();
}

void NetworkSample_floor(benchmark::State& state) { preadFloor(state, {"/proc/net/dev"}); }

}  // namespace

BENCHMARK(DiskSample_library)->Name("DiskSample/library");
BENCHMARK(NetworkSample_library)->Name("NetworkSample/library");
BENCHMARK(NetworkSample_floor)->Name("NetworkSample/floor");
BENCHMARK(MemorySample_library)->Name("MemorySample/library");
BENCHMARK(MemorySample_floor)->Name("MemorySample/floor");
BENCHMARK(CpuSample_library)->Name("CpuSample/library");
BENCHMARK(CpuSample_floor)->Name("CpuSample/floor");
