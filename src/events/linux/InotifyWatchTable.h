#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "events/linux/InotifyReleasedWatches.h"

namespace vexa {

// Which inotify watch (wd) watches which path, kept in step with what the kernel says. Pure:
// giving a watch back to the kernel is the caller's, through the Release it passes.
//
// Removal has two sources. The kernel drops a watch on its own when its item goes (IN_IGNORED
// follows the item's last events). A watch the owner gives back with inotify_rm_watch is
// confirmed by an IN_IGNORED too, queued behind the old watch's unread records; the kernel may
// hand the same wd to a new watch before that IN_IGNORED is read. Until it is read, records for
// the wd are the old watch's and have no path here.
//
// Not thread-safe: one reader owns it.
class InotifyWatchTable {
 public:
  // Gives one watch back to the kernel; true when the kernel will confirm with IN_IGNORED.
  using Release = std::function<bool(int wd)>;

  // `wd` watches `path` from now on. A wd held under another path (the kernel reused it, or
  // answered the existing watch of a folder that has a new name) names `path` only.
  void add(int wd, const std::string& path);

  // The path of a live watch; nothing for an unknown wd, a forgotten one, or one given back
  // whose IN_IGNORED has not been read yet.
  std::optional<std::string> pathOf(int wd) const;
  std::optional<int> watchOf(const std::string& path) const;

  // The kernel's IN_IGNORED for `wd`: the confirmation of a watch given back, or else the
  // kernel's own removal, which drops the watch.
  void ignored(int wd);

  // Drops the watches of `path` and of everything under it, giving each to `release` when set.
  void forgetTree(const std::string& path, const Release& release);
  // Drops the watch of `path` alone (nothing under it), giving it to `release` when set.
  void forget(const std::string& path, const Release& release);
  // Drops (and releases) the watches under none of `roots`.
  void forgetOutside(const std::vector<std::string>& roots, const Release& release);
  // A watched folder has a new name: the watches of its subtree follow it.
  void renameTree(const std::string& from, const std::string& to);
  // Forgets everything, confirmations awaited included (after a queue overflow, which may have
  // cost them).
  void clear();

  // Paths watched.
  size_t size() const { return watchOfPath_.size(); }

 private:
  void drop(std::map<std::string, int>::iterator entry, const Release& release);

  std::unordered_map<int, std::string> pathOfWatch_;
  std::map<std::string, int> watchOfPath_;  // ordered: a subtree is one range
  InotifyReleasedWatches released_;
};

}  // namespace vexa
