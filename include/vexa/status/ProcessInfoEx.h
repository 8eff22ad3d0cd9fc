#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "vexa/Export.h"

namespace vexa {

// One launched application as ProcessStatusEx last read it from the vexa-top screens.
class VEXA_EXPORT ProcessInfoEx {
 public:
  ProcessInfoEx(int32_t processId, std::string name, std::string path)
      : pid(processId), appName(std::move(name)), appPath(std::move(path)) {}

  int32_t pid = 0;
  std::string appName;
  std::string appPath;
  double cpu = 0;                         // percent of one processor
  uint64_t memory = 0;                    // resident bytes
  uint64_t purgMemory = 0;                // always 0: Linux has no purgeable memory of a process
  uint64_t cmprsMemory = 0;               // bytes swapped out (VmSwap)
  uint64_t prevMsgsent = 0, msgsent = 0;  // write system calls (syscw), before and now
  uint64_t prevMsgrecv = 0, msgrecv = 0;  // read system calls (syscr), before and now
  double power = 0;                       // an estimate of energy use: the processor share
  int64_t stat = 0;                       // as ProcessInfo::stat
  double sampleInterval = 0;              // seconds since the previous screen
};

}  // namespace vexa
