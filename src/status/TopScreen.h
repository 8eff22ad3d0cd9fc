#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "status/ProcessCpuShares.h"

namespace vexa {

class MachineFiles;

// The screens vexa-top prints: a header, then one line per process of one user with the asked
// columns, read from /proc under a root folder.
//
//   pid      the process id
//   cpu      percent of one processor since the previous screen ("%.1f"; the first screen
//            since the process started)
//   mem      resident bytes               purg     0 (no purgeable memory on Linux)
//   cmprs    bytes swapped out (VmSwap)   msgsent  write system calls (syscw of /proc/PID/io)
//   msgrecv  read system calls (syscr)    power    an estimate: the processor share ("%.1f")
//
// Sizes are whole numbers in the largest unit that holds them exactly ("512K", "3M", "0B"), so
// nothing is lost to rounding.
class TopScreen {
 public:
  enum class Column { Pid, Cpu, Mem, Purg, Cmprs, Msgsent, Msgrecv, Power };

  // The columns of a "-stats" list ("pid,cpu,mem"); nothing when one is unknown.
  static std::optional<std::vector<Column>> parseColumns(std::string_view list);
  static std::string byteSize(uint64_t bytes);

  TopScreen(std::shared_ptr<MachineFiles> files, uint32_t uid, double ticksPerSecond,
            std::vector<Column> columns);

  // The next screen: every process of the user, or of `only` (still the user's) when given.
  // Processes that end while they are read are left out.
  std::string next(const std::vector<int32_t>& only = {});

 private:
  std::optional<std::string> line(int32_t pid, double now);

  std::shared_ptr<MachineFiles> files_;
  uint32_t uid_;
  std::vector<Column> columns_;
  ProcessCpuShares shares_;
  uint64_t pageSize_;
};

}  // namespace vexa
