#pragma once

#include <functional>
#include <memory>
#include <string>

namespace vexa {

// Hears of mounts and unmounts. The kernel marks a process's mount table (/proc/self/mountinfo)
// whenever a file system is mounted or unmounted in its namespace; a thread of this watch waits
// for that mark and calls `changed` on that thread. A plain file given as the table never
// changes. Destruction stops and joins the thread (without waiting out a time-out): `changed`
// must not destroy the watch.
class MountWatch {
 public:
  virtual ~MountWatch() = default;
  // Null when `tablePath` cannot be opened, is not a regular file, or no thread can start.
  static std::unique_ptr<MountWatch> start(const std::string& tablePath,
                                           std::function<void()> changed);
};

}  // namespace vexa
