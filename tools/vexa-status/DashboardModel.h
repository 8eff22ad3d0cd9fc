#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace vexa::tools {

// What the dashboard shows: the latest figures the samplers reported, and the state of the
// keys (sort order, interval, pause, prompts). A plain value owned by the main loop's thread;
// it knows nothing of terminals or samplers, so tests fill it by hand.
class DashboardModel {
 public:
  enum class Sort { Cpu, Memory, Name, Pid };
  enum class Prompt { None, Help, ConfirmClean };
  // What a key asks of the program around the model.
  enum class Action { None, Redraw, Quit, IntervalChanged, Clean };

  struct System {
    std::string host, os, model, processor;
    uint64_t processorCount = 0;
    uint64_t physicalMemory = 0;
  };
  struct Core {
    uint32_t number = 0;
    double system = 0, user = 0, idle = 0;
  };
  struct Cpu {
    std::vector<Core> cores;  // by core number
    std::optional<Core> total;
    int32_t tasks = 0, threads = 0;
    std::optional<double> load1, load5, load15;
    std::optional<double> celsius;
  };
  struct Memory {
    uint64_t total = 0, active = 0, wired = 0, compressed = 0, free = 0;
  };
  struct Swap {
    uint64_t size = 0, used = 0;
    uint32_t areas = 0;
    std::string name;  // the first area's file or device
  };
  struct Disk {
    std::string name, path;
    uint64_t total = 0, used = 0;
  };
  struct Service {
    std::string id, name;
    bool active = false;
    std::optional<double> down, up;  // bytes per second over the last period
    double peak = 0;
    std::vector<double> downHistory, upHistory;  // oldest first
  };
  struct Battery {
    std::optional<double> percent;
    std::string state;  // "on battery, 3:00 left", "charging", "charged", ...
  };
  struct Application {
    int32_t pid = 0;
    std::string name;
    double cpu = 0;     // percent of one processor
    double memory = 0;  // percent of the machine's memory
    int64_t residentKiB = 0;
  };

  // Samples kept for each service's sparklines.
  static constexpr size_t kHistoryLength = 120;
  static constexpr int kMaxInterval = 3600;

  explicit DashboardModel(int interval = 1);

  // --- figures, as the samplers' delegates report them.
  // The system sampler's dictionary ("computerName", "sysOSVersion", ...).
  void setSystem(const nlohmann::json& dictionary);
  void setUptime(std::optional<double> seconds) { uptime_ = seconds; }
  void setCore(const Core& core);
  void setCpuTotal(double system, double user, double idle);
  void setTasks(int32_t tasks, int32_t threads);
  void setLoad(double oneMinute, double fiveMinutes, double fifteenMinutes);
  void setTemperature(double celsius) { cpu_.celsius = celsius; }
  // The memory sampler's dictionary; the swap dictionary comes with the first sample only.
  void setMemory(const nlohmann::json& memory, const std::optional<nlohmann::json>& swap);
  void setDisks(const nlohmann::json& disks);
  // The service records of a sample, possibly more than once per sample as the sampler
  // completes them; commitNetworkSample() then adds the sample's rates to the histories once.
  void setServices(const nlohmann::json& services);
  void commitNetworkSample();
  void setBatteryPercent(double percent);
  void setBatteryState(std::string state);
  void setApplications(std::vector<Application> applications);
  void setClipboardChanges(int64_t count) { clipboardChanges_ = count; }

  // --- keys and prompts.
  Action handleKey(int key);
  // Whether 'c' may offer a cleaning (there is a memory sampler).
  void setCanClean(bool can) { canClean_ = can; }
  // The cleaning has ended; `gained` is the change in available memory in bytes, when known.
  void cleaningFinished(std::optional<double> gained);
  // A line for the footer until the next key, e.g. the cleaning's result.
  void setMessage(std::string message) { message_ = std::move(message); }

  const System& system() const { return system_; }
  std::optional<double> uptime() const { return uptime_; }
  const Cpu& cpu() const { return cpu_; }
  const std::optional<Memory>& memory() const { return memory_; }
  const std::optional<Swap>& swap() const { return swap_; }
  const std::optional<std::vector<Disk>>& disks() const { return disks_; }
  const std::vector<Service>& services() const { return services_; }
  const std::optional<Battery>& battery() const { return battery_; }
  std::optional<int64_t> clipboardChanges() const { return clipboardChanges_; }
  // The launched applications in the chosen order; ties go by process id.
  std::vector<Application> sortedApplications() const;
  bool hasApplications() const { return applicationsReported_; }

  Sort sort() const { return sort_; }
  static const char* sortName(Sort sort);
  int interval() const { return interval_; }
  bool paused() const { return paused_; }
  bool cleaning() const { return cleaning_; }
  Prompt prompt() const { return prompt_; }
  const std::string& message() const { return message_; }

 private:
  System system_;
  std::optional<double> uptime_;
  Cpu cpu_;
  std::optional<Memory> memory_;
  std::optional<Swap> swap_;
  std::optional<std::vector<Disk>> disks_;
  std::vector<Service> services_;
  std::optional<Battery> battery_;
  std::vector<Application> applications_;
  bool applicationsReported_ = false;
  std::optional<int64_t> clipboardChanges_;

  Sort sort_ = Sort::Cpu;
  int interval_;
  bool paused_ = false;
  bool canClean_ = false;
  bool cleaning_ = false;
  Prompt prompt_ = Prompt::None;
  std::string message_;
};

}  // namespace vexa::tools
