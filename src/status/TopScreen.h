#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "status/KeptFile.h"
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

  // How many processes keep their files open between screens (three descriptors each).
  void setKeptProcesses(size_t count) { keepLimit_ = count; }
  // All the descriptor limit allows but 256 descriptors, at the time of the call.
  static size_t defaultKeptProcesses();
  // Raises this process's soft descriptor limit to the hard one, before a screen is made, for a
  // program that owns its process and does not use select() (vexa-top).
  static void raiseDescriptorLimit();

 private:
  // A process's files, kept open from one screen to the next: a screen then costs a read per
  // file and process, not an open, a read and a close, each walking /proc/PID anew.
  struct ProcessFiles {
    std::unique_ptr<KeptFile> status, stat, io;
    uint64_t screen = 0;  // the last screen that listed the process
  };
  std::optional<std::string> line(int32_t pid, double now);
  // The process's file `name` ("status", "stat" or "io") into scratch_; a kept file that
  // fails (the process ended, or its pid now names another) is opened once more.
  std::optional<std::string_view> read(int32_t pid, ProcessFiles* kept,
                                       std::unique_ptr<KeptFile> ProcessFiles::*file,
                                       const char* name);

  std::shared_ptr<MachineFiles> files_;
  uint32_t uid_;
  std::vector<Column> columns_;
  ProcessCpuShares shares_;
  uint64_t pageSize_;
  std::unordered_map<int32_t, ProcessFiles> kept_;
  size_t keepLimit_ = defaultKeptProcesses();
  uint64_t screens_ = 0;
  std::string scratch_;
};

}  // namespace vexa
