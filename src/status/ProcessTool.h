#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vexa {

class MachineFiles;

// The process-status tool the samplers read: text in the columns and layout of procps `ps -o`.
class ProcessTool {
 public:
  virtual ~ProcessTool() = default;
  // A header line, then "pid %cpu %mem rss vsz stat" for each listed process that exists (rss
  // and vsz in KiB). Nothing when none of them exists, as ps exits 1 then.
  virtual std::optional<std::string> usage(const std::vector<int32_t>& pids) = 0;
  // A header line, then "pid stat" for each listed process that exists; nothing when none does.
  virtual std::optional<std::string> states(const std::vector<int32_t>& pids) = 0;

  // Reads /proc under `files`: no child process. %cpu is the share of one processor over the
  // time since this tool last saw the process (since it started, the first time); the state is
  // the kernel's one letter. Keeps what it saw, so one caller at a time.
  static std::shared_ptr<ProcessTool> fromProc(std::shared_ptr<MachineFiles> files);
  // Runs `program` (procps ps) with "-p LIST -o pid,%cpu,%mem,rss,vsz,stat" each time.
  static std::shared_ptr<ProcessTool> psProgram(std::string program = "/bin/ps");
};

}  // namespace vexa
