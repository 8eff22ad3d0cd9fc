#include "events/linux/InotifyRecord.h"

#include <sys/inotify.h>

#include <cstring>

namespace vexa {

std::vector<InotifyRecord> InotifyRecord::parse(const char* bytes, size_t size) {
  std::vector<InotifyRecord> records;
  size_t at = 0;
  while (size - at >= sizeof(inotify_event)) {
    inotify_event header;
    std::memcpy(&header, bytes + at, sizeof header);
    const size_t end = at + sizeof header + header.len;
    if (end > size) break;
    // The name is padded with NULs to an aligned length.
    const char* name = bytes + at + sizeof header;
    records.push_back(InotifyRecord{header.wd, header.mask, header.cookie,
                                    std::string(name, ::strnlen(name, header.len))});
    at = end;
  }
  return records;
}

}  // namespace vexa
