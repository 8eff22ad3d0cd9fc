#pragma once

#include <utility>

namespace vexa {

// The watcher a folder walk's C call-back reports to. The walkers take a plain function with no
// context, so the watcher walking on this thread is kept here for the walk's length; a call-back
// outside any walk goes to the shared watcher. Walks may nest (the outer one is put back).
template <typename Watcher>
class ScanTarget {
 public:
  explicit ScanTarget(Watcher& walking) : outer_(std::exchange(current_, &walking)) {}
  ~ScanTarget() { current_ = outer_; }
  ScanTarget(const ScanTarget&) = delete;
  ScanTarget& operator=(const ScanTarget&) = delete;

  static Watcher& get() { return current_ ? *current_ : Watcher::shared(); }

 private:
  static inline thread_local Watcher* current_ = nullptr;
  Watcher* const outer_;
};

}  // namespace vexa
