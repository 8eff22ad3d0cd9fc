#include "status/CleanBudget.h"

#include <algorithm>

#include "status/MachineFiles.h"

namespace vexa {
namespace {

constexpr uint64_t kMinimumReserve = uint64_t{256} << 20;
// A cgroup limit this large means "no limit" (v1 writes PAGE_COUNTER_MAX pages).
constexpr uint64_t kUnlimited = uint64_t{1} << 60;

std::optional<uint64_t> find(const KernelTable& table, std::string_view key) {
  const auto found = table.find(key);
  if (found == table.end()) return std::nullopt;
  return found->second;
}

std::optional<uint64_t> readNumber(const MachineFiles& files, const std::string& path) {
  const auto text = files.read(path);
  return text ? parseUnsigned(*text) : std::nullopt;
}

// The cgroup path of one hierarchy in /proc/self/cgroup: the v1 "memory" controller, or the
// v2 "0::" line.
std::optional<std::string> cgroupPath(std::string_view text, bool v1) {
  while (!text.empty()) {
    const size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    const size_t first = line.find(':');
    const size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
    if (second != std::string_view::npos) {
      const std::string_view id = line.substr(0, first);
      const std::string_view controllers = line.substr(first + 1, second - first - 1);
      const std::string_view path = line.substr(second + 1);
      bool match = false;
      if (v1) {
        size_t start = 0;
        while (start <= controllers.size()) {
          const size_t comma = controllers.find(',', start);
          if (controllers.substr(start, comma - start) == "memory") match = true;
          if (comma == std::string_view::npos) break;
          start = comma + 1;
        }
      } else {
        match = id == "0" && controllers.empty();
      }
      if (match && !path.empty() && path.front() == '/' &&
          path.find("/..") == std::string_view::npos) {
        return std::string(path == "/" ? "" : path);
      }
    }
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return std::nullopt;
}

}  // namespace

uint64_t CleanBudget::reserve(uint64_t memTotal) {
  return std::max(memTotal / 20, kMinimumReserve);
}

uint64_t CleanBudget::chunks(const KernelTable& meminfo, std::optional<uint64_t> headroom) {
  const auto total = find(meminfo, "MemTotal");
  const auto free = find(meminfo, "MemFree");
  const auto available = find(meminfo, "MemAvailable");
  if (!total || !free || !available) return 0;
  const uint64_t kept = reserve(*total);
  if (*available <= kept) return 0;
  uint64_t budget = std::min(*free, *available - kept);
  if (headroom) budget = std::min(budget, *headroom > kept ? *headroom - kept : 0);
  return budget >> 28;
}

std::optional<std::string> CleanBudget::cgroupV2Folder(const MachineFiles& files) {
  const auto path = cgroupPath(files.read("/proc/self/cgroup").value_or(""), false);
  if (!path) return std::nullopt;
  return "/sys/fs/cgroup" + *path;
}

std::optional<uint64_t> CleanBudget::cgroupHeadroom(const MachineFiles& files) {
  const std::string membership = files.read("/proc/self/cgroup").value_or("");
  if (const auto v1 = cgroupPath(membership, true)) {
    // A container sees its own cgroup at the hierarchy's root.
    for (const std::string& folder :
         {"/sys/fs/cgroup/memory" + *v1, std::string("/sys/fs/cgroup/memory")}) {
      const auto limit = readNumber(files, folder + "/memory.limit_in_bytes");
      const auto usage = readNumber(files, folder + "/memory.usage_in_bytes");
      if (!limit || !usage) continue;
      if (*limit >= kUnlimited) return std::nullopt;
      return *limit > *usage ? *limit - *usage : 0;
    }
    return std::nullopt;
  }
  const auto folder = cgroupV2Folder(files);
  if (!folder) return std::nullopt;
  const auto current = readNumber(files, *folder + "/memory.current");
  if (!current) return std::nullopt;
  std::optional<uint64_t> limit;
  for (const char* name : {"/memory.max", "/memory.high"}) {
    // "max" is no limit, and so is not a number.
    if (const auto value = readNumber(files, *folder + name)) {
      limit = limit ? std::min(*limit, *value) : *value;
    }
  }
  if (!limit || *limit >= kUnlimited) return std::nullopt;
  return *limit > *current ? *limit - *current : 0;
}

bool CleanBudget::pressureTooHigh(std::string_view psi) {
  const size_t some = psi.find("some ");
  if (some == std::string_view::npos) return false;
  const size_t key = psi.find("avg10=", some);
  if (key == std::string_view::npos) return false;
  std::string_view value = psi.substr(key + 6);
  value = value.substr(0, value.find_first_of(" \n"));
  // Whole percent is enough: "10.00" is not above 10, "10.01" is.
  const size_t dot = value.find('.');
  const auto whole = parseUnsigned(value.substr(0, dot));
  if (!whole) return false;
  if (*whole != 10) return *whole > 10;
  const std::string_view fraction = dot == std::string_view::npos ? "" : value.substr(dot + 1);
  return fraction.find_first_not_of('0') != std::string_view::npos;
}

uint64_t CleanBudget::chunksNow(const MachineFiles& files) {
  return chunks(parseMeminfo(files.read("/proc/meminfo").value_or("")), cgroupHeadroom(files));
}

bool CleanBudget::shouldStop(const MachineFiles& files) {
  if (pressureTooHigh(files.read("/proc/pressure/memory").value_or(""))) return true;
  const KernelTable meminfo = parseMeminfo(files.read("/proc/meminfo").value_or(""));
  const auto total = find(meminfo, "MemTotal");
  const auto available = find(meminfo, "MemAvailable");
  return !total || !available || *available < reserve(*total);
}

}  // namespace vexa
