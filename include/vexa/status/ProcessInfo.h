#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "vexa/Export.h"

namespace vexa {

// One launched application as ProcessStatus last sampled it.
class VEXA_EXPORT ProcessInfo {
 public:
  ProcessInfo(int32_t processId, std::string name, std::string path)
      : pid(processId), appName(std::move(name)), appPath(std::move(path)) {}

  int32_t pid = 0;
  std::string appName;
  std::string appPath;          // the desktop entry the application was started from
  double cpu = 0;               // percent of one processor over the last period
  double memory = 0;            // percent of the machine's memory
  int32_t phyMemoryPages = 0;   // resident size in KiB
  int32_t virtMemoryPages = 0;  // virtual size in KiB
  // 1 running ("R"), 2 "SX", 3 "RX", 0 any other state.
  int64_t stat = 0;
};

}  // namespace vexa
