#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vexa {

// One line of a mount table in the mountinfo format, its path fields unescaped.
struct MountEntry {
  std::string root;        // the folder of the file system mounted there
  std::string mountPoint;  // where it is mounted
  std::string fsType;      // e.g. "ext4", "tmpfs", "fuse.sshfs"
  std::string source;      // e.g. "/dev/sda1"
  std::string device;      // the file system's "major:minor", e.g. "8:1"
  std::string options;     // the mount's options and then the file system's, comma-separated
};

// The mount table: "36 35 98:0 /mnt1 /mnt/parent rw,noatime master:1 - ext3 /dev/root rw".
class MountTable {
 public:
  // Every well-formed line in order; a line missing a field or the "-" separator is skipped.
  static std::vector<MountEntry> parse(std::string_view text);
  // The table in the file `path` (normally /proc/self/mountinfo); empty when it cannot be read
  // or is not a regular file (a FIFO is never waited on). Reads at most 16 MiB.
  static std::vector<MountEntry> read(const std::string& path);
  // Undoes the kernel's octal escapes ("\040" space, "\011" tab, "\012" newline, "\134"
  // backslash); any other backslash is kept as it is.
  static std::string unescape(std::string_view field);
};

}  // namespace vexa
