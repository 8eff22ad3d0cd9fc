#pragma once

#include <memory>

#include "events/linux/WatchQueueKernel.h"
#include "util/UniqueFd.h"

namespace vexa {

// The watch queue's port on the real kernel: one inotify instance (close-on-exec, non-blocking)
// and an eventfd that interrupts a wait. wait() runs on one thread; the rest is safe from any.
class InotifyKernel final : public WatchQueueKernel {
 public:
  // Nothing when no inotify instance can be made (logged, naming the per-user limit).
  static std::unique_ptr<InotifyKernel> create();
  ~InotifyKernel() override;

  int addWatch(const std::string& path, uint32_t mask) override;
  bool removeWatch(int wd) override;
  std::vector<InotifyRecord> wait(int timeoutMs) override;
  void wake() override;
  std::optional<WatchedItemStatus> status(const std::string& path, bool followLink) override;
  std::vector<std::string> list(const std::string& folder) override;
  uint32_t userId() override;

 private:
  InotifyKernel(UniqueFd inotify, UniqueFd wake);
  UniqueFd inotify_;
  UniqueFd wake_;
};

}  // namespace vexa
