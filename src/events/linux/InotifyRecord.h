#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vexa {

// One record of an inotify descriptor, as plain values: the watch it concerns, the IN_* bits,
// the cookie that ties the two halves of a move together, and the entry's name within the
// watched folder (empty when the record is about the watched item itself, and for IN_IGNORED
// and IN_Q_OVERFLOW, whose wd is -1).
struct InotifyRecord {
  int wd = -1;
  uint32_t mask = 0;
  uint32_t cookie = 0;
  std::string name;

  // Splits what one read() of an inotify descriptor answered into records. A record cut short
  // at the end of the bytes (which the kernel never does) ends the list. Pure.
  static std::vector<InotifyRecord> parse(const char* bytes, size_t size);

  bool operator==(const InotifyRecord&) const = default;
};

}  // namespace vexa
