#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "status/ProcParsers.h"

namespace vexa {

class MachineFiles;

// Figures that more than one sampler reads from the machine's files.
namespace machine_facts {

// The nominal clock rate of cpu0 in hertz: cpufreq base_frequency, else cpuinfo_max_freq, else
// the first "cpu MHz" of /proc/cpuinfo.
std::optional<uint64_t> processorClockHz(const MachineFiles& files);
// The online processors (sysfs "online" list, else the cores of /proc/stat), 1 when unknown.
int onlineProcessorCount(const MachineFiles& files);
// Installed memory: online memory blocks times the block size, else MemTotal, else 0.
uint64_t installedMemoryBytes(const MachineFiles& files);
// The mm_stat files of the zram devices that have a size (a disksize of 0: not set up).
std::vector<std::string> zramStatFiles(const MachineFiles& files);
// True when every swap area is a dm-crypt device (none: false).
bool swapIsEncrypted(const MachineFiles& files, const std::vector<SwapEntry>& entries);

}  // namespace machine_facts
}  // namespace vexa
