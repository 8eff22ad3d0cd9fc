#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vexa {

class MachineFiles;

// The applications the user has launched from the desktop: the processes the samplers follow.
class LaunchedApplications {
 public:
  // One launched application: its name, the file it was launched from, its main process.
  struct Record {
    std::string name;
    std::string path;
    int32_t pid = 0;
    bool operator==(const Record&) const = default;
  };

  virtual ~LaunchedApplications() = default;
  // The running applications, in a stable order; empty when none is known. Safe from one thread
  // at a time.
  virtual std::vector<Record> launched() = 0;

  // The applications of user `uid` on the machine under `files` (its cgroups and /proc), their
  // names and paths from the desktop entries of the XDG data folders.
  static std::shared_ptr<LaunchedApplications> ofUser(std::shared_ptr<MachineFiles> files,
                                                      uint32_t uid);
};

}  // namespace vexa
