#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vexa {

class MachineFiles;

// A kernel file read again and again through one descriptor kept open (a pread from offset 0
// makes the kernel write it anew), so a sample costs a read, not an open, a stat and a close.
// When the file could not be kept open, each read opens it as MachineFiles::read does.
class KeptFile {
 public:
  virtual ~KeptFile() = default;
  // The whole file, in a buffer of the KeptFile's own that the next read reuses (the view
  // lasts until then). Nothing when it cannot be read.
  virtual std::optional<std::string_view> read() = 0;
  // The same into `buffer`, which keeps its size between calls (grown when the file needs it):
  // for callers that keep many files and one buffer for them all.
  virtual std::optional<std::string_view> readInto(std::string& buffer) = 0;

  static std::unique_ptr<KeptFile> open(std::shared_ptr<const MachineFiles> files,
                                        const std::string& path);
};

}  // namespace vexa
