#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace vexa {

// Waits for the mount table to change.
class MountTableWatch {
 public:
  virtual ~MountTableWatch() = default;
  // True when the table changed since the last call (or since the watch was made) within
  // `timeout`; false when the time ran out.
  virtual bool waitForChange(std::chrono::milliseconds timeout) = 0;

  // A watch of the process's mount table, /proc/self/mountinfo under `root`.
  static std::unique_ptr<MountTableWatch> open(const std::string& root);
};

}  // namespace vexa
