#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vexa {

// The space of the file system holding a path, in blocks of blockSize bytes.
struct VolumeSpace {
  uint64_t blockSize = 0;
  uint64_t blocks = 0;
  uint64_t available = 0;  // blocks an unprivileged user may still fill
  uint64_t free = 0;       // blocks free, the reserved ones included
  uint64_t nodes = 0;      // file nodes (inodes) in all
};

// The samplers' view of the machine: the /proc, /sys and /etc files they read, resolved under a
// root folder ("/" for the running machine, a fixture tree in tests and under --sysroot).
// Paths are absolute as on the machine ("/proc/meminfo").
class MachineFiles {
 public:
  // /proc and /sys files report a size of 0 or 4096 whatever they hold, so reads go to the end;
  // anything past this is not a file the samplers understand.
  static constexpr size_t kMaxFileBytes = 4 << 20;
  // The mounts of the process's own namespace.
  static constexpr const char* kMountTable = "/proc/self/mountinfo";

  virtual ~MachineFiles() = default;

  // The whole of a small regular file, or nothing when it is missing, unreadable or not a
  // regular file (a FIFO or a device is never waited on).
  virtual std::optional<std::string> read(const std::string& path) const = 0;
  // The names in a folder, sorted; empty when it cannot be listed.
  virtual std::vector<std::string> list(const std::string& folder) const = 0;
  // The target of a symbolic link, as stored.
  virtual std::optional<std::string> readLink(const std::string& path) const = 0;
  virtual const std::string& root() const = 0;
  // Writes `text` to an existing file (a kernel control file); false when it is missing, not
  // writable or refuses the value.
  virtual bool write(const std::string& path, const std::string& text) const = 0;

  // The space of the file system mounted at (or holding) `path`; nothing when it cannot be
  // reached. May block on a hung network file system: callers skip those.
  virtual std::optional<VolumeSpace> volumeSpace(const std::string& path) const = 0;

  // The running process's figures that no file holds.
  virtual uint64_t pageSize() const = 0;
  virtual uint32_t userId() const = 0;

  // The machine under `root`; "/" or "" means this machine.
  static std::shared_ptr<MachineFiles> underRoot(const std::string& root);
};

}  // namespace vexa
