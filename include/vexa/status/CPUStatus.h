#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "vexa/Export.h"
#include "vexa/status/CPUDelegate.h"

namespace vexa {

class CpuUsage;
class KeptFile;
class MachineFiles;
class SamplerTimer;

// Samples processor load every freshInterval seconds (1 by default) on the run loop of the
// thread that created it or last changed the interval. Each sample reports, in this order:
// every online core's shares of system (with irq, softirq and steal), user (with nice) and idle
// (with iowait) time since the previous sample, the shares of all cores together, the task and
// thread counts, the three load averages and, when the machine has a sensor for it, the
// processor temperature.
class VEXA_EXPORT CPUStatus : public std::enable_shared_from_this<CPUStatus> {
 public:
  // The process's sampler of this machine; null when /proc/stat cannot be read.
  static CPUStatus* shared();
  // A sampler of the machine under `root`, primed with a first reading and sampling every
  // second on the calling thread's run loop; null when its /proc/stat has no core.
  static std::shared_ptr<CPUStatus> create(const std::string& root = "/");
  ~CPUStatus();
  CPUStatus(const CPUStatus&) = delete;
  CPUStatus& operator=(const CPUStatus&) = delete;

  void setFreshInterval(int32_t seconds);
  int32_t freshInterval() const;
  // One sample now, on the calling thread.
  void updateInfo();

  // "Intel", whatever the processor (the host shows it as a family name).
  std::string getCPUName() const;
  // The nominal clock rate as "%.2f MHz" up to 1 GHz, else "%.2f GHz".
  std::optional<std::string> getCPUSpeed() const;
  // Online processors, 1 when unknown.
  int32_t getNumberOfCPUs() const;

  std::shared_ptr<CPUDelegate> delegate() const;
  void setDelegate(std::shared_ptr<CPUDelegate> delegate);
  const std::string& cpuName() const { return cpuName_; }
  const std::optional<std::string>& cpuSpeed() const { return cpuSpeed_; }
  int32_t numberOfCPUs() const { return numberOfCPUs_; }

  // The clock-rate text of `hertz`.
  static std::string formatClockRate(uint64_t hertz);

 private:
  explicit CPUStatus(std::shared_ptr<MachineFiles> files);
  void reportTemperature(CPUDelegate& delegate);
  // The processes in /proc, counted again only when loadavg's figures moved.
  uint64_t taskCount(uint64_t threads, uint64_t lastPid);

  std::shared_ptr<MachineFiles> files_;
  std::unique_ptr<SamplerTimer> timer_;
  std::unique_ptr<CpuUsage> usage_;
  mutable std::mutex cpuUsageLock_;
  std::shared_ptr<CPUDelegate> delegate_;
  std::string cpuName_;
  std::optional<std::string> cpuSpeed_;
  int32_t numberOfCPUs_ = 1;
  // The files every sample reads, kept open.
  std::unique_ptr<KeptFile> stat_;
  std::unique_ptr<KeptFile> loadavg_;
  // The file the temperature was last found in; re-chosen when it stops answering.
  std::unique_ptr<KeptFile> temperature_;
  bool temperatureSearched_ = false;
  // The last count of processes and the loadavg figures it was taken at; by cpuUsageLock_.
  std::optional<uint64_t> countedTasks_;
  uint64_t countedThreads_ = 0, countedLastPid_ = 0;
};

}  // namespace vexa
