#include "vexa/events/WatchQueuePathEntries.h"

#include <algorithm>
#include <utility>

namespace vexa {

namespace {

// Orders entries by path against a path.
struct ByPath {
  bool operator()(const WatchQueuePathEntries::Entry& entry, std::string_view path) const {
    return entry->path() < path;
  }
};

}  // namespace

std::vector<WatchQueuePathEntries::Entry>::const_iterator WatchQueuePathEntries::lowerBound(
    std::string_view path) const {
  return std::lower_bound(entries_.begin(), entries_.end(), path, ByPath{});
}

std::vector<WatchQueuePathEntries::Entry>::const_iterator WatchQueuePathEntries::locate(
    std::string_view path) const {
  const auto at = lowerBound(path);
  return at != entries_.end() && (*at)->path() == path ? at : entries_.end();
}

WatchQueuePathEntries::Entry WatchQueuePathEntries::find(std::string_view path) const {
  const auto at = locate(path);
  return at == entries_.end() ? nullptr : *at;
}

bool WatchQueuePathEntries::contains(std::string_view path) const {
  return locate(path) != entries_.end();
}

const WatchQueuePathEntries::Entry& WatchQueuePathEntries::insert(Entry entry) {
  // The common case first: a path after every one kept.
  if (entries_.empty() || entries_.back()->path() < entry->path()) {
    return entries_.emplace_back(std::move(entry));
  }
  const auto at = entries_.begin() + (lowerBound(entry->path()) - entries_.cbegin());
  if (at != entries_.end() && (*at)->path() == entry->path()) return *at;
  return *entries_.insert(at, std::move(entry));
}

WatchQueuePathEntries::Entry WatchQueuePathEntries::erase(std::string_view path) {
  const auto found = locate(path);
  if (found == entries_.end()) return nullptr;
  const auto at = entries_.begin() + (found - entries_.cbegin());
  Entry gone = std::move(*at);
  entries_.erase(at);
  // A burst of thousands of downloads leaves no array of its size behind once it is over.
  if (entries_.capacity() > 64 && entries_.size() < entries_.capacity() / 4) {
    entries_.shrink_to_fit();
  }
  return gone;
}

void WatchQueuePathEntries::clear() { entries_ = {}; }

}  // namespace vexa
