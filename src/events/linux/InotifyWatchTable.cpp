#include "events/linux/InotifyWatchTable.h"

#include <algorithm>

#include "util/PathName.h"

namespace vexa {

namespace {

// Visits the entries of `table` at or under `folder`. Keys sharing the prefix without a "/"
// boundary ("a-b" sorts between "a" and "a/") are stepped over, not the end of the range.
template <typename Visit>
void forEachUnder(std::map<std::string, int>& table, const std::string& folder, Visit visit) {
  for (auto it = table.lower_bound(folder); it != table.end();) {
    if (!PathName::hasPrefix(it->first, folder)) break;
    if (!PathName::isWithin(it->first, folder)) {
      ++it;
      continue;
    }
    it = visit(it);
  }
}

}  // namespace

void InotifyWatchTable::add(int wd, const std::string& path) {
  auto previous = pathOfWatch_.find(wd);
  if (previous != pathOfWatch_.end() && previous->second != path) {
    auto byPath = watchOfPath_.find(previous->second);
    if (byPath != watchOfPath_.end() && byPath->second == wd) watchOfPath_.erase(byPath);
  }
  pathOfWatch_[wd] = path;
  watchOfPath_[path] = wd;
}

std::optional<std::string> InotifyWatchTable::pathOf(int wd) const {
  if (released_.awaited(wd)) return std::nullopt;
  auto found = pathOfWatch_.find(wd);
  if (found == pathOfWatch_.end()) return std::nullopt;
  return found->second;
}

std::optional<int> InotifyWatchTable::watchOf(const std::string& path) const {
  auto found = watchOfPath_.find(path);
  if (found == watchOfPath_.end()) return std::nullopt;
  return found->second;
}

void InotifyWatchTable::ignored(int wd) {
  if (released_.confirmed(wd)) return;  // whatever holds the wd now is a newer watch
  auto found = pathOfWatch_.find(wd);
  if (found == pathOfWatch_.end()) return;
  auto byPath = watchOfPath_.find(found->second);
  if (byPath != watchOfPath_.end() && byPath->second == wd) watchOfPath_.erase(byPath);
  pathOfWatch_.erase(found);
}

void InotifyWatchTable::drop(std::map<std::string, int>::iterator entry, const Release& release) {
  const int wd = entry->second;
  pathOfWatch_.erase(wd);
  if (release && release(wd)) released_.released(wd);
}

void InotifyWatchTable::forgetTree(const std::string& path, const Release& release) {
  forEachUnder(watchOfPath_, path, [&](auto it) {
    drop(it, release);
    return watchOfPath_.erase(it);
  });
}

void InotifyWatchTable::forget(const std::string& path, const Release& release) {
  auto found = watchOfPath_.find(path);
  if (found == watchOfPath_.end()) return;
  drop(found, release);
  watchOfPath_.erase(found);
}

void InotifyWatchTable::forgetOutside(const std::vector<std::string>& roots,
                                      const Release& release) {
  for (auto it = watchOfPath_.begin(); it != watchOfPath_.end();) {
    const bool kept = std::any_of(roots.begin(), roots.end(), [&](const std::string& root) {
      return PathName::isWithin(it->first, root);
    });
    if (kept) {
      ++it;
    } else {
      drop(it, release);
      it = watchOfPath_.erase(it);
    }
  }
}

void InotifyWatchTable::renameTree(const std::string& from, const std::string& to) {
  std::vector<std::pair<std::string, int>> moved;
  forEachUnder(watchOfPath_, from, [&](auto it) {
    moved.emplace_back(to + it->first.substr(from.size()), it->second);
    return watchOfPath_.erase(it);
  });
  for (auto& [path, wd] : moved) {
    pathOfWatch_[wd] = path;
    watchOfPath_[path] = wd;
  }
}

void InotifyWatchTable::clear() {
  pathOfWatch_.clear();
  watchOfPath_.clear();
  released_.clear();
}

}  // namespace vexa
