#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace vexa {

// Whole-file reads and atomic replacement.
class AtomicFile {
 public:
  // Writes `contents` to a temporary file beside `path` and renames it over `path`, so readers
  // see the old file or the new one, never a part. The file gets `mode`.
  static std::error_code write(const std::string& path, std::string_view contents,
                               unsigned mode = 0644);
  // Creates every missing folder of `path` (new ones get `mode`); true when it is a folder.
  static bool createFolders(const std::string& path, unsigned mode = 0755);
  // The file's bytes; empty when it cannot be read or is not a regular file (a pipe, a device,
  // a folder: answered at once, never waited on). Files larger than `limit` are not read.
  static std::optional<std::string> read(const std::string& path,
                                         std::size_t limit = std::size_t{64} << 20);
};

}  // namespace vexa
