#pragma once

#include <unordered_set>

namespace vexa {

// The inotify watches given back with inotify_rm_watch whose IN_IGNORED has not been read yet.
// That confirmation is queued behind the old watch's unread records, and the kernel may hand the
// same wd to a new watch before it is read: until then, records for the wd are the old watch's.
//
// Not thread-safe: one reader owns it.
class InotifyReleasedWatches {
 public:
  void released(int wd) { awaiting_.insert(wd); }
  // Records for `wd` belong to a watch given back.
  bool awaited(int wd) const { return awaiting_.count(wd) > 0; }
  // The kernel's IN_IGNORED for `wd`: true when it confirms a watch given back (which is no
  // longer awaited), false when the kernel dropped a watch of its own accord.
  bool confirmed(int wd) { return awaiting_.erase(wd) > 0; }
  void clear() { awaiting_.clear(); }

 private:
  std::unordered_set<int> awaiting_;
};

}  // namespace vexa
