// vexa-status: runs the samplers and shows their figures: on a terminal as a full-screen
// dashboard (see Dashboard.h; '?' lists its keys), otherwise, or with --json, by printing every
// call-back they make as one JSON line:
//
//   {"time": seconds since the epoch, "source": "memory"|"cpu"|"system"|"disk"|"battery"|
//    "network"|"process"|"clipboard", "call": the delegate operation, "data": {...}}
//
// "data" is the sampler's dictionary where the call-back carries one (memory: the memory
// dictionary, with the virtual-memory and swap dictionaries under "vm" and "swap"; disk: the
// volumes under "disks"; network: the services under "services"), else the call's arguments by
// name; process: the launched applications' records under "processes" (null when none runs).
// System information is one "system" line. After the first battery update a "batteryFigures"
// line gives the battery's own figures; a machine without a battery prints no battery lines.
// The clipboard has no sample of its own: a "clipboard" line, with the clipboard's change
// counter, follows each change of its contents (none without an X display, and none with --once).
// The clipboard is always the session's own, also with --sysroot.
//
//   --json          JSON Lines on standard output even when it is a terminal
//   --once          one sample of every sampler as JSON Lines, then exit
//   --only LIST     memory,cpu,system,disk,battery,network,process,clipboard (comma-separated);
//                   all by default
//   --interval N    seconds between samples (default 1)
//   --sysroot DIR   read every /proc, /sys and /etc file under DIR (a captured machine)

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "Dashboard.h"
#include "StatusSamplers.h"
#include "StopSignals.h"
#include "vexa/status/PasteboardMonitor.h"
#include "vexa/status/SystemStatus.h"
#include "vexa/util/RunLoop.h"

namespace {

// Writes one line whose "data" is DATA_TEXT, JSON already written. The line is put together as
// text rather than as a document: at one sample a second this printing is most of what the
// program does beside the samplers.
void printText(const char* source, const char* call, std::string_view dataText) {
  const double now =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  char time[32];
  const auto written = std::to_chars(time, time + sizeof time, now);
  std::printf("{\"time\":%.*s,\"source\":\"%s\",\"call\":\"%s\",\"data\":%.*s}\n",
              static_cast<int>(written.ptr - time), time, source, call,
              static_cast<int>(dataText.size()), dataText.data());
  // One write per sample rather than one per line: the lines of a sample are printed in one
  // turn of the main loop, and the flush runs at its next turn. (With --once, exit flushes.)
  static bool flushPending = false;
  if (!flushPending) {
    flushPending = true;
    vexa::RunLoop::main().post([] {
      flushPending = false;
      std::fflush(stdout);
    });
  }
}

std::string dump(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void print(const char* source, const char* call, const nlohmann::json& data) {
  printText(source, call, dump(data));
}

const std::set<std::string> kSources = {"memory",  "cpu",     "system",  "disk",
                                        "battery", "network", "process", "clipboard"};

class Printer : public vexa::MemoryDelegate,
                public vexa::CPUDelegate,
                public vexa::DiskDelegate,
                public vexa::BatteryDelegate,
                public vexa::NetworkDelegate,
                public vexa::ProcessStatsDelegate,
                public vexa::PasteboardMonitorDelegate {
 public:
  void updateProcessStaus(const std::optional<std::vector<vexa::ProcessInfo>>& infos) override {
    nlohmann::json records;  // null without applications
    if (infos) {
      records = nlohmann::json::array();
      for (const vexa::ProcessInfo& info : *infos) {
        records.push_back({{"pid", info.pid},
                           {"appName", info.appName},
                           {"appPath", info.appPath},
                           {"cpu", info.cpu},
                           {"memory", info.memory},
                           {"phyMemoryPages", info.phyMemoryPages},
                           {"virtMemoryPages", info.virtMemoryPages},
                           {"stat", info.stat}});
      }
    }
    print("process", "updateProcessStaus", {{"processes", std::move(records)}});
  }
  using vexa::ProcessStatsDelegate::updateProcessStaus;
  void pasteboardChange(vexa::Pasteboard&) override {
    print("clipboard", "pasteboardChange",
          {{"changeCount", vexa::PasteboardMonitor::shared().lastChangeCount()}});
  }
  void diskDetails(const nlohmann::json& disks) override {
    print("disk", "diskDetails", {{"disks", disks}});
  }
  void networkStatus(const nlohmann::json& services) override {
    print("network", "networkStatus", {{"services", services}});
  }
  void batteryCalculating(double percent) override {
    print("battery", "batteryCalculating", {{"percent", percent}});
  }
  void batteryWithRemaining(const std::string& remaining) override {
    print("battery", "batteryWithRemaining", {{"remaining", remaining}});
  }
  void batteryRemainingWithLeft(const std::string& left) override {
    print("battery", "batteryRemainingWithLeft", {{"left", left}});
  }
  void batteryCharged() override { print("battery", "batteryCharged", {}); }
  void charged() override { print("battery", "charged", {}); }
  void batteryChargingCalculating() override { print("battery", "batteryChargingCalculating", {}); }
  void batteryChargingWithRemaining(const std::string& remaining) override {
    print("battery", "batteryChargingWithRemaining", {{"remaining", remaining}});
  }

  void updateMemoryStatus(const nlohmann::json& memory, const nlohmann::json& vm,
                          const std::optional<nlohmann::json>& swap) override {
    // The memory dictionary's members (an object of its own keys), then "vm" and "swap",
    // written without copying the three into one document.
    std::string text = dump(memory);
    text.pop_back();  // the closing brace
    if (!memory.empty()) text += ',';
    text += "\"vm\":";
    text += dump(vm);
    text += ",\"swap\":";
    text += swap ? dump(*swap) : "null";
    text += '}';
    printText("memory", "updateMemoryStatus", text);
  }
  void clearMemoryCompleted() override { print("memory", "clearMemoryCompleted", {}); }
  void cpuUsedWithCore(uint32_t core, float system, float user, float idle) override {
    print("cpu", "cpuUsedWithCore",
          {{"core", core}, {"system", system}, {"user", user}, {"idle", idle}});
  }
  void cpuUsedWithSystem(float system, float user, float idle) override {
    print("cpu", "cpuUsedWithSystem", {{"system", system}, {"user", user}, {"idle", idle}});
  }
  void processorWithTaskCount(int32_t taskCount, int32_t threadCount) override {
    print("cpu", "processorWithTaskCount",
          {{"taskCount", taskCount}, {"threadCount", threadCount}});
  }
  void loadAverageWith1m(float oneMinute, float fiveMinutes, float fifteenMinutes) override {
    print("cpu", "loadAverageWith1m",
          {{"1m", oneMinute}, {"5m", fiveMinutes}, {"15m", fifteenMinutes}});
  }
  void cpuWithTemperature(double temperature) override {
    print("cpu", "cpuWithTemperature", {{"temperature", temperature}});
  }
};

int usage(const char* problem) {
  if (problem) std::fprintf(stderr, "vexa-status: %s\n", problem);
  std::fprintf(stderr,
               "usage: vexa-status [--json] [--once] "
               "[--only memory,cpu,system,disk,battery,network,process,clipboard] "
               "[--interval N] "
               "[--sysroot DIR]\n");
  return 2;
}

int run(int argc, char** argv) {
  bool once = false;
  bool json = false;
  int interval = 1;
  std::string root = "/";
  std::set<std::string> only = kSources;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--json") {
      json = true;
    } else if (arg == "--once") {
      once = true;
    } else if (arg == "--only" && hasValue) {
      only.clear();
      std::stringstream list(argv[++i]);
      std::string name;
      while (std::getline(list, name, ',')) {
        if (!kSources.contains(name)) {
          return usage(
              "--only takes memory, cpu, system, disk, battery, network, process and clipboard");
        }
        only.insert(name);
      }
    } else if (arg == "--interval" && hasValue) {
      char* end = nullptr;
      const long value = std::strtol(argv[++i], &end, 10);
      if (*end != '\0' || value < 1 || value > 86400) return usage("--interval takes 1 to 86400");
      interval = static_cast<int>(value);
    } else if (arg == "--sysroot" && hasValue) {
      root = argv[++i];
    } else if (arg == "--help" || arg == "-h") {
      usage(nullptr);
      return 0;
    } else {
      return usage(("unknown argument " + arg).c_str());
    }
  }

  const vexa::tools::StopSignals stopSignals;

  vexa::tools::StatusSamplers samplers = vexa::tools::StatusSamplers::create(root, only);
  if (!json && !once && isatty(STDOUT_FILENO)) {
    vexa::tools::Dashboard dashboard(std::move(samplers), interval);
    const vexa::RunLoop loop = vexa::RunLoop::main();
    stopSignals.quitOnSignal(loop);
    return dashboard.run(loop);
  }

  auto printer = std::make_shared<Printer>();
  const auto& memory = samplers.memory;
  const auto& cpu = samplers.cpu;
  const auto& disk = samplers.disk;
  const auto& battery = samplers.battery;
  const auto& network = samplers.network;
  const auto& process = samplers.process;
  if (process) process->setDelegate(printer);
  if (memory) memory->setDelegate(printer);
  if (cpu) cpu->setDelegate(printer);
  if (disk) disk->setDelegate(printer);
  if (battery) battery->setDelegate(printer);
  if (network) network->setDelegate(printer);
  const auto batteryFigures = [&battery] {
    print("battery", "batteryFigures",
          {{"health", battery->batteryHealth()},
           {"currentPercent", battery->currentPercent()},
           {"capacity", battery->capacity()},
           {"cycleCount", battery->cycleCount()},
           {"watt", battery->watt()},
           {"celsius", battery->celsius()},
           {"fahrenheit", battery->fahrenheit()},
           {"timeSinceUnplugged", battery->timeSinceUnpluggedTranslated()},
           {"batteryMaxCapacity", battery->batteryMaxCapacity()},
           {"batteryCurrentCapacity", battery->batteryCurrentCapacity()},
           {"batteryAmperage", battery->batteryAmperage()},
           {"batteryVoltage", battery->batteryVoltage()},
           {"batteryWatt", battery->batteryWatt()}});
  };
  if (samplers.system) {
    print("system", "setupSystemInformation", vexa::SystemStatus::create(root)->dictionary());
  }
  if (battery) {
    battery->updateCurrentStatus();
    batteryFigures();
  }

  if (once) {
    if (memory) memory->updateInfo();
    if (disk) disk->updateInfo();
    // Usage and traffic are differences of two readings: the first was taken when the sampler
    // was made.
    if (cpu || network) std::this_thread::sleep_for(std::chrono::milliseconds(250));
    if (cpu) cpu->updateInfo();
    if (network) network->updateInfo();
    if (process) process->updateInfo();
    return 0;
  }

  samplers.setFreshInterval(interval);
  if (samplers.clipboard) {
    vexa::PasteboardMonitor::shared().setDelegate(printer);
    vexa::PasteboardMonitor::shared().start();
  }
  vexa::RunLoop loop = vexa::RunLoop::main();
  stopSignals.quitOnSignal(loop);
  loop.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {  // out of memory, say: said, not a crash
    std::fprintf(stderr, "vexa-status: %s\n", e.what());
    return 1;
  }
}
