#include "vexa/monitors/MonitorTrash.h"

#include "monitors/CoalescingTask.h"
#include "monitors/HostAnnouncer.h"
#include "monitors/TrashFolder.h"
#include "util/PathName.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/messaging/Message.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

MonitorTrash& MonitorTrash::shared() {
  static auto* instance = new std::shared_ptr<MonitorTrash>(
      new MonitorTrash(MonitorDispatch::shared(), XSocketServer::shared()));
  return **instance;
}

std::shared_ptr<MonitorTrash> MonitorTrash::create(MonitorDispatch& dispatch,
                                                   XSocketServer& server) {
  return std::shared_ptr<MonitorTrash>(new MonitorTrash(dispatch, server));
}

MonitorTrash::MonitorTrash(MonitorDispatch& dispatch, XSocketServer& server)
    : dispatch_(dispatch),
      announcer_(std::make_unique<HostAnnouncer>(server, "vexa.monitors.trash.host")),
      measurement_(std::make_unique<CoalescingTask>(DispatchQueue::global(),
                                                    [this] { sendChangedMessage(); })) {}

// Measurements still queued hold only the task's state; the instance outlives them, as the
// shared one does and as create()'s callers must.
MonitorTrash::~MonitorTrash() = default;

void MonitorTrash::startMonitor(bool flag) {
  (void)flag;
  const std::string trash = TrashFolder::prepare();
  {
    std::lock_guard lock(lock_);
    trashPath_ = trash;
  }
  if (trash.empty()) return;
  dispatch_.addMonitorPath(trash, shared_from_this());
  measurement_->request();
}

void MonitorTrash::stopMonotor() {
  std::string trash;
  {
    std::lock_guard lock(lock_);
    trash = trashPath_;
  }
  if (!trash.empty()) dispatch_.removeMonitorPath(trash, shared_from_this());
}

void MonitorTrash::sendChangedMessage() {
  std::string trash;
  {
    std::lock_guard lock(lock_);
    trash = trashPath_;
  }
  if (trash.empty()) trash = MonitorString::userTrashPath().value_or("");
  const uint64_t used = trash.empty() ? 0 : sizeOfFileWithPath(trash);
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
  std::string trash;
  {
    std::lock_guard lock(lock_);
    trash = trashPath_;
  }
  if (!trash.empty() && PathName::hasPrefix(path, trash)) measurement_->request();
}

void MonitorTrash::fileCreated(const std::string& path) { changed(path); }
void MonitorTrash::fileMoveIn(const std::string& path) { changed(path); }
void MonitorTrash::fileMoveOut(const std::string& path) { changed(path); }
void MonitorTrash::fileRemove(const std::string& path) { changed(path); }
void MonitorTrash::fileModify(const std::string& path) { changed(path); }

}  // namespace vexa
