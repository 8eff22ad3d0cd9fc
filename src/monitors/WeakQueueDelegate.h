#pragma once

#include <memory>
#include <string>

#include "vexa/events/FSWatchQueueDelegate.h"

namespace vexa {

// Hands a watch queue's call-backs to a delegate the queue must not keep alive (the queue's
// owner): the queue retains its delegate, and the owner retains the queue.
class WeakQueueDelegate : public FSWatchQueueDelegate {
 public:
  explicit WeakQueueDelegate(std::weak_ptr<FSWatchQueueDelegate> target)
      : target_(std::move(target)) {}

  void watchQueueReceivedNotification(FSWatchQueue& queue, const std::string& name,
                                      const std::string& path) override {
    if (auto target = target_.lock()) target->watchQueueReceivedNotification(queue, name, path);
  }
  void watchQueueDeleted(FSWatchQueue& queue, const std::string& path) override {
    if (auto target = target_.lock()) target->watchQueueDeleted(queue, path);
  }
  void watchQueueRename(FSWatchQueue& queue, const std::string& newPath,
                        const std::string& oldPath) override {
    if (auto target = target_.lock()) target->watchQueueRename(queue, newPath, oldPath);
  }
  void watchQueueRemoveToTrash(FSWatchQueue& queue, const std::string& trashedPath,
                               const std::string& oldPath) override {
    if (auto target = target_.lock()) target->watchQueueRemoveToTrash(queue, trashedPath, oldPath);
  }

 private:
  std::weak_ptr<FSWatchQueueDelegate> target_;
};

}  // namespace vexa
