#pragma once

#include <memory>
#include <optional>
#include <string>

namespace vexa {

class MachineFiles;

// A kernel file read again and again through one descriptor kept open (a pread from offset 0
// makes the kernel write it anew), so a sample costs a read, not an open, a stat and a close.
// When the file could not be kept open, each read opens it as MachineFiles::read does.
class KeptFile {
 public:
  virtual ~KeptFile() = default;
  // The whole file; `text`'s buffer is reused between reads.
  virtual bool read(std::string& text) = 0;

  static std::unique_ptr<KeptFile> open(std::shared_ptr<const MachineFiles> files,
                                        const std::string& path);
};

}  // namespace vexa
