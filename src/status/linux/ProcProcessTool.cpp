#include <unistd.h>

#include <cstdio>
#include <utility>

#include "status/MachineFiles.h"
#include "status/ProcParsers.h"
#include "status/ProcessCpuShares.h"
#include "status/ProcessTool.h"

namespace vexa {
namespace {

// Prints what procps ps prints for "-o pid,%cpu,%mem,rss,vsz,stat" from /proc/PID/stat and
// status (times, state, sizes): some tens of µs a process, where ps reads every process of the
// machine to answer for a few.
class ProcProcessTool final : public ProcessTool {
 public:
  explicit ProcProcessTool(std::shared_ptr<MachineFiles> files)
      : files_(std::move(files)),
        shares_(static_cast<double>(::sysconf(_SC_CLK_TCK))),
        pageKiB_(files_->pageSize() / 1024) {
    const auto meminfo = parseMeminfo(files_->read("/proc/meminfo").value_or(""));
    if (const auto total = meminfo.find("MemTotal"); total != meminfo.end()) {
      memTotalKiB_ = total->second / 1024;
    }
  }

  std::optional<std::string> usage(const std::vector<int32_t>& pids) override {
    const auto now = uptimeSeconds();
    std::string text = "    PID %CPU %MEM   RSS    VSZ STAT\n";
    for (const int32_t pid : pids) {
      const auto stat = readStat(pid);
      if (!stat) continue;
      // The resident size the stat file holds is the kernel's per-processor approximation; the
      // status file sums it exactly, as ps prints it.
      const uint64_t rssKiB = residentKiB(pid).value_or(stat->residentPages * pageKiB_);
      const double cpu = now ? shares_.share(*stat, *now) : 0.0;
      const double mem =
          memTotalKiB_ ? 100.0 * static_cast<double>(rssKiB) / static_cast<double>(memTotalKiB_)
                       : 0.0;
      char line[128];
      std::snprintf(line, sizeof line, "%7d %4.1f %4.1f %5llu %6llu %c\n", stat->pid, cpu, mem,
                    static_cast<unsigned long long>(rssKiB),
                    static_cast<unsigned long long>(stat->virtualBytes / 1024), stat->state);
      text += line;
    }
    shares_.endRound();
    if (text.find('\n') + 1 == text.size()) return std::nullopt;
    return text;
  }

  std::optional<std::string> states(const std::vector<int32_t>& pids) override {
    std::string text = "    PID STAT\n";
    bool any = false;
    for (const int32_t pid : pids) {
      const auto stat = readStat(pid);
      if (!stat) continue;
      char line[32];
      std::snprintf(line, sizeof line, "%7d %c\n", stat->pid, stat->state);
      text += line;
      any = true;
    }
    if (!any) return std::nullopt;
    return text;
  }

 private:
  std::optional<PidStat> readStat(int32_t pid) const {
    if (pid <= 0) return std::nullopt;
    // A process that ends between the listing and this read simply has no line.
    const auto text = files_->read("/proc/" + std::to_string(pid) + "/stat");
    return text ? parsePidStat(*text) : std::nullopt;
  }

  std::optional<uint64_t> residentKiB(int32_t pid) const {
    const auto status = files_->read("/proc/" + std::to_string(pid) + "/status");
    if (!status) return std::nullopt;
    // Kernel threads have no VmRSS line: nothing resident.
    const auto rss = statusField(*status, "VmRSS");
    if (!rss) return 0;
    return parseUnsigned(rss->substr(0, rss->find(' ')));
  }

  std::optional<double> uptimeSeconds() const {
    const auto text = files_->read("/proc/uptime");
    if (!text) return std::nullopt;
    try {
      return std::stod(*text);
    } catch (...) {
      return std::nullopt;
    }
  }

  std::shared_ptr<MachineFiles> files_;
  ProcessCpuShares shares_;
  uint64_t pageKiB_;
  uint64_t memTotalKiB_ = 0;
};

}  // namespace

std::shared_ptr<ProcessTool> ProcessTool::fromProc(std::shared_ptr<MachineFiles> files) {
  return std::make_shared<ProcProcessTool>(std::move(files));
}

}  // namespace vexa
