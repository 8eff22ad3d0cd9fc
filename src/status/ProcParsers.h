#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Pure parsers of the kernel's and the system's text files. None of them reads a file; each
// takes the text and answers a defined value for any input (truncated, odd bytes, overflowing
// numbers): what cannot be understood is left out, never guessed.
namespace vexa {

using KernelTable = std::map<std::string, uint64_t, std::less<>>;

// A decimal unsigned number with optional surrounding white space; nothing when the text is
// empty, holds anything else or does not fit 64 bits.
std::optional<uint64_t> parseUnsigned(std::string_view text);

// The same with an optional leading minus sign, within signed 64 bits.
std::optional<int64_t> parseSigned(std::string_view text);

// Keys a caller wants; empty means all of them.
using KeySet = std::span<const std::string_view>;

// /proc/meminfo: "Key:   value kB" lines as bytes ("kB" lines multiplied by 1024, lines
// without a unit as read). Lines without a number, and values whose bytes overflow, are left
// out.
KernelTable parseMeminfo(std::string_view text, KeySet only = {});
// /proc/vmstat: "name value" lines.
KernelTable parseVmstat(std::string_view text, KeySet only = {});

// One "cpuN" line of /proc/stat. Columns the kernel did not print count 0.
struct CoreTicks {
  int index = 0;
  uint64_t user = 0, nice = 0, system = 0, idle = 0, iowait = 0, irq = 0, softirq = 0, steal = 0;
};
// The per-core lines in file order; the "cpu" total line, lines with fewer than four counters
// and lines whose counters are not numbers are left out.
std::vector<CoreTicks> parseProcStat(std::string_view text);

// /proc/loadavg: "0.52 0.58 0.59 2/1234 5678".
struct LoadAverage {
  double oneMinute = 0, fiveMinutes = 0, fifteenMinutes = 0;
  uint64_t runnable = 0, threads = 0;
  uint64_t lastPid = 0;  // the newest pid handed out; 0 when the field is missing
};
std::optional<LoadAverage> parseLoadavg(std::string_view text);

// /proc/swaps, sizes in bytes; the path with the kernel's octal escapes ("\040") undone.
struct SwapEntry {
  std::string path;
  std::string type;
  uint64_t size = 0;
  uint64_t used = 0;
};
std::vector<SwapEntry> parseSwaps(std::string_view text);

// A kernel CPU list ("0-3,6,8-9\n"); nothing when malformed.
std::optional<std::vector<int>> parseCpuList(std::string_view text);

// /proc/cpuinfo: the first "model name" and "cpu MHz", the number of "processor" entries and
// the number of distinct (physical id, core id) pairs (0 when the file has no such ids).
struct CpuInfo {
  std::optional<std::string> modelName;
  std::optional<double> megahertz;
  int processors = 0;
  int cores = 0;
};
CpuInfo parseCpuinfo(std::string_view text);

// KEY=value lines as in os-release and machine-info: quotes removed, backslash escapes undone,
// comments and malformed lines skipped.
std::map<std::string, std::string> parseKeyValueFile(std::string_view text);

// A hwmon or thermal temperature in millidegrees Celsius; nothing when not a number or outside
// what a sensor can mean (at or below -273 °C, above 200 °C).
std::optional<double> parseMillidegrees(std::string_view text);

// A zram device's mm_stat: original data bytes and the memory it uses.
struct ZramUsage {
  uint64_t original = 0;
  uint64_t used = 0;
};
std::optional<ZramUsage> parseZramMmStat(std::string_view text);

// The login and full name (the GECOS field up to its first comma) of `uid` in a passwd file.
struct PasswdEntry {
  std::string name;
  std::string fullName;
};
std::optional<PasswdEntry> findPasswdEntry(std::string_view text, uint32_t uid);

// One interface of /proc/net/dev: its name and its 64-bit received and sent byte counters.
struct NetDevCounters {
  std::string name;
  uint64_t receivedBytes = 0;
  uint64_t sentBytes = 0;
};
// /proc/net/dev: the two header lines, then "name: rx_bytes rx_packets ... tx_bytes ..." with
// sixteen counters. A line without its colon or its counters is left out.
std::vector<NetDevCounters> parseNetDev(std::string_view text);

// One route of /proc/net/route that leads everywhere (destination and mask 0): its interface
// and gateway ("192.168.1.1"; empty for a direct route), in table order, lowest metric first.
struct DefaultRoute {
  std::string interface;
  std::string gateway;
  uint32_t metric = 0;
};
std::vector<DefaultRoute> parseDefaultRoutes(std::string_view text);

// The "nameserver" addresses of a resolv.conf, in order.
std::vector<std::string> parseResolvConf(std::string_view text);

// The fields of /proc/PID/stat that the process samplers use. The command name sits between
// the first "(" and the last ")" and may itself hold ")", spaces and new lines.
struct PidStat {
  int32_t pid = 0;
  std::string comm;
  char state = '?';
  uint32_t parentPid = 0;
  uint64_t userTicks = 0;
  uint64_t systemTicks = 0;
  uint64_t startTicks = 0;     // clock ticks after boot
  uint64_t virtualBytes = 0;   // vsize
  uint64_t residentPages = 0;  // rss
};
std::optional<PidStat> parsePidStat(std::string_view text);

// The "Name:\tvalue" line of /proc/PID/status for `key` (e.g. "VmSwap" in kB, "Uid"), the value
// without surrounding white space.
std::optional<std::string> statusField(std::string_view text, std::string_view key);

// A "NAME=value" entry of a NUL-separated environment block such as /proc/PID/environ.
std::optional<std::string> environValue(std::string_view block, std::string_view name);

// A value file of sysfs without its trailing new line (and NUL, for device-tree strings);
// nothing when that leaves it empty.
std::optional<std::string> trimmedValue(const std::optional<std::string>& text);

}  // namespace vexa
