#include "vexa/monitors/MonitorTrash.h"

#include <algorithm>

#include "monitors/CoalescingTask.h"
#include "monitors/HostAnnouncer.h"
#include "monitors/PathList.h"
#include "monitors/TrashFolder.h"
#include "monitors/VolumeTrashes.h"
#include "util/MountWatch.h"
#include "util/PathName.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/messaging/Message.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/MonitorString.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

MonitorTrash& MonitorTrash::shared() {
  static auto* instance = new std::shared_ptr<MonitorTrash>(
      create(MonitorDispatch::shared(), XSocketServer::shared(), kMountTable));
  return **instance;
}

std::shared_ptr<MonitorTrash> MonitorTrash::create(MonitorDispatch& dispatch, XSocketServer& server,
                                                   std::string mountTable) {
  auto self =
      std::shared_ptr<MonitorTrash>(new MonitorTrash(dispatch, server, std::move(mountTable)));
  *self->self_ = self;
  return self;
}

MonitorTrash::MonitorTrash(MonitorDispatch& dispatch, XSocketServer& server, std::string mountTable)
    : dispatch_(dispatch),
      announcer_(std::make_unique<HostAnnouncer>(server, "vexa.monitors.trash.host")),
      self_(std::make_shared<std::weak_ptr<MonitorTrash>>()),
      // A measurement still queued when the instance goes finds it gone and does nothing.
      measurement_(std::make_unique<CoalescingTask>(DispatchQueue::global(),
                                                    [weak = self_] {
                                                      if (auto self = weak->lock()) {
                                                        self->sendChangedMessage();
                                                      }
                                                    })),
      mountTable_(std::move(mountTable)) {}

MonitorTrash::~MonitorTrash() = default;

void MonitorTrash::startMonitor(bool flag) {
  (void)flag;
  const std::string trash = TrashFolder::prepare();
  if (trash.empty()) return;
  auto watch = MountWatch::start(mountTable_, [this] { measurement_->request(); });
  {
    std::lock_guard registering(registration_);
    {
      std::lock_guard lock(lock_);
      if (monitoring_) return;
      monitoring_ = true;
      trashPath_ = trash;
      trashIdentity_ = TrashFolder::folderIdentity(trash).value_or(std::make_pair(0, 0));
      mountWatch_ = std::move(watch);
    }
    dispatch_.addMonitorPath(trash, shared_from_this());
  }
  measurement_->request();
}

void MonitorTrash::stopMonotor() {
  std::unique_ptr<MountWatch> watch;
  std::vector<std::string> registered;
  {
    std::lock_guard registering(registration_);
    {
      std::lock_guard lock(lock_);
      if (!monitoring_) return;
      monitoring_ = false;
      watch = std::move(mountWatch_);
      registered = std::exchange(volumeTrashes_, {});
      registered.push_back(trashPath_);
    }
    for (const auto& path : registered) dispatch_.removeMonitorPath(path, shared_from_this());
  }
}

std::vector<std::string> MonitorTrash::refreshTrashes() {
  std::string trash;
  {
    std::lock_guard lock(lock_);
    trash = trashPath_;
  }
  if (trash.empty()) trash = MonitorString::userTrashPath().value_or("");
  if (trash.empty()) return {};
  std::vector<std::string> volumes = VolumeTrashes::find(mountTable_, trash);
  auto identity = TrashFolder::folderIdentity(trash);
  std::lock_guard registering(registration_);
  std::vector<std::string> added, removed;
  bool registerHome = false;
  {
    std::lock_guard lock(lock_);
    if (monitoring_) {
      // Deleted (or moved away): made again. Replaced by a link or a file: left alone, told once.
      if (!identity && !PathName::entryExists(trash)) {
        TrashFolder::prepare();
        identity = TrashFolder::folderIdentity(trash);
      }
      if (!identity && !std::exchange(trashUnusable_, true)) {
        SystemLog::log("The Trash %s is not a folder: it is neither measured nor watched",
                       trash.c_str());
      }
      if (identity) trashUnusable_ = false;
      if (identity && (*identity != trashIdentity_ || std::exchange(trashReplaced_, false))) {
        trashIdentity_ = *identity;
        registerHome = true;
      }
      for (const auto& volume : volumes) {
        if (!PathList::contains(volumeTrashes_, volume)) added.push_back(volume);
      }
      for (const auto& volume : volumeTrashes_) {
        if (!PathList::contains(volumes, volume)) removed.push_back(volume);
      }
      volumeTrashes_ = volumes;
    }
  }
  const auto self = shared_from_this();
  if (registerHome) {
    // The stream watches the folder it found at registration: a new folder needs a new one.
    dispatch_.removeMonitorPath(trash, self);
    dispatch_.addMonitorPath(trash, self);
  }
  for (const auto& volume : removed) dispatch_.removeMonitorPath(volume, self);
  for (const auto& volume : added) dispatch_.addMonitorPath(volume, self);
  volumes.insert(volumes.begin(), trash);
  return volumes;
}

void MonitorTrash::sendChangedMessage() {
  const uint64_t used = TrashFolder::sizeOfTrashes(refreshTrashes());
  {
    std::lock_guard lock(lock_);
    if (used == preUsedSize_) return;
    preUsedSize_ = used;
  }
  announcer_->post(announcer_->prepare(Message("TrashSizeChange", {{"Used", used}})));
}

uint64_t MonitorTrash::preUsedSize() const {
  std::lock_guard lock(lock_);
  return preUsedSize_;
}

uint64_t MonitorTrash::sizeOfFileWithPath(const std::string& path) {
  return TrashFolder::sizeOfFileWithPath(path);
}

uint64_t MonitorTrash::folderSizeAtPath(const std::string& folder) {
  return TrashFolder::folderSizeAtPath(folder);
}

nlohmann::json MonitorTrash::commonAttributesOfFile(const std::string& path) {
  return TrashFolder::commonAttributesOfFile(path);
}

void MonitorTrash::changed(const std::string& path) {
  const auto now = std::chrono::steady_clock::now();
  {
    std::lock_guard lock(lock_);
    bool ours = !trashPath_.empty() && PathName::hasPrefix(path, trashPath_);
    // The Trash folder itself removed or made: perhaps a new folder with the old inode number.
    if (path == trashPath_) trashReplaced_ = true;
    for (const auto& volume : volumeTrashes_) ours = ours || PathName::hasPrefix(path, volume);
    if (!ours) return;
    lastEvent_ = now;
    if (std::exchange(measurementDue_, true)) return;
    firstEvent_ = now;
  }
  settleThenMeasure(kSettleSeconds);
}

// Events come in bursts (a Trash emptied is one per entry, for seconds): the measurement waits
// until they pause, so that a burst costs a walk every two seconds and one at its end, not one
// every half second.
void MonitorTrash::settleThenMeasure(double seconds) {
  DispatchQueue::global().after(seconds, [weak = weak_from_this()] {
    auto self = weak.lock();
    if (!self) return;
    using Seconds = std::chrono::duration<double>;
    double wait = 0;
    {
      std::lock_guard lock(self->lock_);
      const auto now = std::chrono::steady_clock::now();
      const double quiet = Seconds(now - self->lastEvent_).count();
      const double waited = Seconds(now - self->firstEvent_).count();
      wait = std::min(kSettleSeconds - quiet, kLongestWaitSeconds - waited);
      if (wait <= 0) self->measurementDue_ = false;
    }
    if (wait > 0) {
      self->settleThenMeasure(wait);
      return;
    }
    self->measurement_->request();
  });
}

void MonitorTrash::fileCreated(const std::string& path) { changed(path); }
void MonitorTrash::fileMoveIn(const std::string& path) { changed(path); }
void MonitorTrash::fileMoveOut(const std::string& path) { changed(path); }
void MonitorTrash::fileRemove(const std::string& path) { changed(path); }
void MonitorTrash::fileModify(const std::string& path) { changed(path); }

}  // namespace vexa
