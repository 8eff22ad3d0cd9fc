#pragma once

#include <optional>
#include <string>

namespace vexa {

// What the application walkers ask of a desktop entry, kept per file: whether it is an
// application DesktopAppBundle::open() accepts, and the name it shows. A rescan of a folder of
// thousands of entries then costs a stat per entry, not a read and a parse; a file is read again
// when its inode, size, modification or change time differ (one changed in the last two seconds
// is never kept: file times are too coarse to tell two writes that close apart). Safe from any
// thread.
class DesktopEntrySummary {
 public:
  bool application = false;
  std::optional<std::string> displayName;

  static DesktopEntrySummary of(const std::string& path);
};

}  // namespace vexa
