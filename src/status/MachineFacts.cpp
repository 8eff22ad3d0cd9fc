#include "status/MachineFacts.h"

#include <cmath>

#include "status/MachineFiles.h"

namespace vexa::machine_facts {
namespace {

std::optional<uint64_t> readUnsigned(const MachineFiles& files, const std::string& path) {
  const auto text = files.read(path);
  return text ? parseUnsigned(*text) : std::nullopt;
}

// The dm-N name of a swap device path, following /dev/mapper names through sysfs.
std::optional<std::string> deviceMapperName(const MachineFiles& files, const std::string& path) {
  if (path.rfind("/dev/dm-", 0) == 0) return path.substr(5);
  if (path.rfind("/dev/mapper/", 0) != 0) return std::nullopt;
  const std::string name = path.substr(12);
  for (const std::string& block : files.list("/sys/block")) {
    if (block.rfind("dm-", 0) != 0) continue;
    if (trimmedValue(files.read("/sys/block/" + block + "/dm/name")) == name) return block;
  }
  return std::nullopt;
}

}  // namespace

std::optional<uint64_t> processorClockHz(const MachineFiles& files) {
  const std::string cpufreq = "/sys/devices/system/cpu/cpu0/cpufreq/";
  for (const char* name : {"base_frequency", "cpuinfo_max_freq"}) {
    const auto khz = readUnsigned(files, cpufreq + name);
    if (khz && *khz > 0 && *khz < UINT64_MAX / 1000) return *khz * 1000;
  }
  if (const auto text = files.read("/proc/cpuinfo")) {
    if (const auto mhz = parseCpuinfo(*text).megahertz; mhz && *mhz < 1e9) {
      return static_cast<uint64_t>(std::llround(*mhz * 1e6));
    }
  }
  return std::nullopt;
}

int onlineProcessorCount(const MachineFiles& files) {
  if (const auto text = files.read("/sys/devices/system/cpu/online")) {
    if (const auto cpus = parseCpuList(*text); cpus && !cpus->empty()) {
      return static_cast<int>(cpus->size());
    }
  }
  if (const auto text = files.read("/proc/stat")) {
    if (const auto cores = parseProcStat(*text); !cores.empty()) {
      return static_cast<int>(cores.size());
    }
  }
  return 1;
}

uint64_t installedMemoryBytes(const MachineFiles& files) {
  const auto blockText = trimmedValue(files.read("/sys/devices/system/memory/block_size_bytes"));
  uint64_t blockSize = 0;
  if (blockText && blockText->size() <= 16 &&
      blockText->find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
    blockSize = std::stoull(*blockText, nullptr, 16);
  }
  if (blockSize > 0) {
    uint64_t online = 0;
    for (const std::string& entry : files.list("/sys/devices/system/memory")) {
      if (entry.rfind("memory", 0) != 0 || entry.size() == 6) continue;
      if (trimmedValue(files.read("/sys/devices/system/memory/" + entry + "/state")) == "online") {
        ++online;
      }
    }
    if (online > 0 && online <= UINT64_MAX / blockSize) return online * blockSize;
  }
  if (const auto text = files.read("/proc/meminfo")) {
    const KernelTable meminfo = parseMeminfo(*text);
    if (const auto found = meminfo.find("MemTotal"); found != meminfo.end()) return found->second;
  }
  return 0;
}

std::vector<std::string> zramStatFiles(const MachineFiles& files) {
  std::vector<std::string> paths;
  for (const std::string& block : files.list("/sys/block")) {
    if (block.rfind("zram", 0) != 0) continue;
    // A device that was never given a size holds nothing; it is not read at every sample.
    if (trimmedValue(files.read("/sys/block/" + block + "/disksize")) == "0") continue;
    paths.push_back("/sys/block/" + block + "/mm_stat");
  }
  return paths;
}

bool swapIsEncrypted(const MachineFiles& files, const std::vector<SwapEntry>& entries) {
  if (entries.empty()) return false;
  for (const SwapEntry& entry : entries) {
    const auto dm = deviceMapperName(files, entry.path);
    if (!dm) return false;
    const auto uuid = trimmedValue(files.read("/sys/block/" + *dm + "/dm/uuid"));
    if (!uuid || uuid->rfind("CRYPT-", 0) != 0) return false;
  }
  return true;
}

}  // namespace vexa::machine_facts
