#include "status/TopScreen.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "status/MachineFiles.h"
#include "status/ProcParsers.h"

namespace vexa {

std::optional<std::vector<TopScreen::Column>> TopScreen::parseColumns(std::string_view list) {
  static constexpr std::pair<std::string_view, Column> kNames[] = {
      {"pid", Column::Pid},         {"cpu", Column::Cpu},     {"mem", Column::Mem},
      {"purg", Column::Purg},       {"cmprs", Column::Cmprs}, {"msgsent", Column::Msgsent},
      {"msgrecv", Column::Msgrecv}, {"power", Column::Power}};
  std::vector<Column> columns;
  for (;;) {
    const size_t comma = list.find(',');
    const std::string_view name = list.substr(0, comma);
    const auto known = std::find_if(std::begin(kNames), std::end(kNames),
                                    [&](const auto& entry) { return entry.first == name; });
    if (known == std::end(kNames)) return std::nullopt;
    columns.push_back(known->second);
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
  }
  if (columns.empty()) return std::nullopt;
  return columns;
}

std::string TopScreen::byteSize(uint64_t bytes) {
  static constexpr std::pair<int, char> kUnits[] = {{30, 'G'}, {20, 'M'}, {10, 'K'}};
  if (bytes == 0) return "0B";
  for (const auto& [shift, unit] : kUnits) {
    if (bytes % (uint64_t{1} << shift) == 0) return std::to_string(bytes >> shift) + unit;
  }
  return std::to_string(bytes) + "B";
}

TopScreen::TopScreen(std::shared_ptr<MachineFiles> files, uint32_t uid, double ticksPerSecond,
                     std::vector<Column> columns)
    : files_(std::move(files)),
      uid_(uid),
      columns_(std::move(columns)),
      shares_(ticksPerSecond),
      pageSize_(files_->pageSize()) {}

std::string TopScreen::next(const std::vector<int32_t>& only) {
  static constexpr const char* kHeaders[] = {"PID",   "%CPU",    "MEM",     "PURG",
                                             "CMPRS", "MSGSENT", "MSGRECV", "POWER"};
  std::string screen;
  for (const Column column : columns_) {
    char cell[16];
    std::snprintf(cell, sizeof cell, "%-8s", kHeaders[static_cast<int>(column)]);
    screen += cell;
  }
  while (screen.ends_with(' ')) screen.pop_back();
  screen += '\n';

  std::vector<int32_t> pids = only;
  if (pids.empty()) {
    for (const std::string& name : files_->list("/proc")) {
      if (const auto pid = parseSigned(name); pid && *pid > 0 && *pid <= INT32_MAX) {
        pids.push_back(static_cast<int32_t>(*pid));
      }
    }
  }
  std::sort(pids.begin(), pids.end());
  ++screens_;
  const auto uptime = files_->read("/proc/uptime");
  double now = 0;
  if (uptime) std::sscanf(uptime->c_str(), "%lf", &now);
  for (const int32_t pid : pids) {
    if (const auto text = line(pid, now)) screen += *text;
  }
  // Processes no longer listed give their descriptors back.
  std::erase_if(kept_, [&](const auto& entry) { return entry.second.screen != screens_; });
  shares_.endRound();
  return screen;
}

void TopScreen::raiseDescriptorLimit() {
  struct rlimit files {};
  if (::getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
    files.rlim_cur = files.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &files);
  }
}

size_t TopScreen::defaultKeptProcesses() {
  // Three descriptors a process, leaving 256 for everything else.
  constexpr long kLeft = 256;
  const long limit = ::sysconf(_SC_OPEN_MAX);
  return limit > kLeft ? static_cast<size_t>(limit - kLeft) / 3 : 0;
}

std::optional<std::string_view> TopScreen::read(int32_t pid, ProcessFiles* kept,
                                                std::unique_ptr<KeptFile> ProcessFiles::*file,
                                                const char* name) {
  const auto path = [&] { return "/proc/" + std::to_string(pid) + "/" + name; };
  if (!kept) {
    auto text = files_->read(path());
    if (!text) return std::nullopt;
    scratch_ = std::move(*text);
    return std::string_view(scratch_);
  }
  std::unique_ptr<KeptFile>& slot = kept->*file;
  if (slot) {
    if (const auto text = slot->readInto(scratch_)) return text;
  }
  slot = KeptFile::open(files_, path());
  return slot->readInto(scratch_);
}

std::optional<std::string> TopScreen::line(int32_t pid, double now) {
  ProcessFiles* kept = nullptr;
  if (auto found = kept_.find(pid); found != kept_.end()) {
    kept = &found->second;
  } else if (kept_.size() < keepLimit_) {
    kept = &kept_[pid];
  }
  if (kept) kept->screen = screens_;
  // status first: it tells the owner, so other users' processes cost one read.
  std::optional<uint64_t> uid;
  uint64_t swapKiB = 0;
  if (const auto status = read(pid, kept, &ProcessFiles::status, "status")) {
    const auto uids = statusField(*status, "Uid");
    if (uids) uid = parseUnsigned(uids->substr(0, uids->find_first_of(" \t")));
    if (const auto swap = statusField(*status, "VmSwap")) {
      swapKiB = parseUnsigned(swap->substr(0, swap->find(' '))).value_or(0);
    }
  }
  if (!uid || *uid != uid_) {
    // A process that is gone gives its files back now; another user's keeps its status open.
    if (!uid) kept_.erase(pid);
    return std::nullopt;
  }
  const auto statText = read(pid, kept, &ProcessFiles::stat, "stat");
  const auto stat = statText ? parsePidStat(*statText) : std::nullopt;
  if (!stat) {
    kept_.erase(pid);
    return std::nullopt;
  }
  uint64_t writes = 0, reads = 0;
  if (const auto io = read(pid, kept, &ProcessFiles::io, "io")) {
    writes = parseUnsigned(statusField(*io, "syscw").value_or("")).value_or(0);
    reads = parseUnsigned(statusField(*io, "syscr").value_or("")).value_or(0);
  }
  const double cpu = shares_.share(*stat, now);
  std::string text;
  char cell[32];
  for (const Column column : columns_) {
    switch (column) {
      case Column::Pid:
        std::snprintf(cell, sizeof cell, "%-7d ", stat->pid);
        break;
      case Column::Cpu:
      case Column::Power:
        std::snprintf(cell, sizeof cell, "%-7.1f ", cpu);
        break;
      case Column::Mem:
        std::snprintf(cell, sizeof cell, "%-7s ",
                      byteSize(stat->residentPages * pageSize_).c_str());
        break;
      case Column::Purg:
        std::snprintf(cell, sizeof cell, "%-7s ", "0B");
        break;
      case Column::Cmprs:
        std::snprintf(cell, sizeof cell, "%-7s ", byteSize(swapKiB * 1024).c_str());
        break;
      case Column::Msgsent:
        std::snprintf(cell, sizeof cell, "%-7llu ", static_cast<unsigned long long>(writes));
        break;
      case Column::Msgrecv:
        std::snprintf(cell, sizeof cell, "%-7llu ", static_cast<unsigned long long>(reads));
        break;
    }
    text += cell;
  }
  while (text.ends_with(' ')) text.pop_back();
  text += '\n';
  return text;
}

}  // namespace vexa
