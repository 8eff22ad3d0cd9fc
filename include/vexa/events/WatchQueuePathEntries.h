#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "vexa/Export.h"
#include "vexa/events/WatchQueuePathEntry.h"

namespace vexa {

// Watch-queue entries kept in one array sorted by path: a path is found by binary search and an
// entry costs a pointer pair here (a tree node would add 48 bytes), which counts when thousands
// of files are watched. Entries mostly come in path order (a folder's sorted scan), so adding
// them appends; adding or dropping elsewhere moves the entries after it.
//
// Not thread-safe: its owner guards it.
class VEXA_EXPORT WatchQueuePathEntries {
 public:
  using Entry = std::shared_ptr<WatchQueuePathEntry>;

  // The entry kept for `path`; null when none is.
  Entry find(std::string_view path) const;
  bool contains(std::string_view path) const;
  // Keeps `entry` unless one for its path is kept already; the one kept.
  const Entry& insert(Entry entry);
  // Drops the entry for `path` and hands it back; null when none was kept.
  Entry erase(std::string_view path);
  void clear();

  size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  std::vector<Entry>::const_iterator begin() const { return entries_.begin(); }
  std::vector<Entry>::const_iterator end() const { return entries_.end(); }

 private:
  std::vector<Entry>::const_iterator lowerBound(std::string_view path) const;
  // The entry for exactly `path`, or end().
  std::vector<Entry>::const_iterator locate(std::string_view path) const;

  std::vector<Entry> entries_;
};

}  // namespace vexa
