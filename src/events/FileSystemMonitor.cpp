#include "vexa/events/FileSystemMonitor.h"

#include <sys/stat.h>

#include <algorithm>

#include "events/EventStream.h"
#include "vexa/util/Preferences.h"
#include "vexa/util/RunLoop.h"

namespace vexa {

namespace {

constexpr double kLatency = 1.0;
constexpr const char* kSyncEventIdKey = "SyncEventID";

bool itemExists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

}  // namespace

FileSystemMonitor& FileSystemMonitor::shared() {
  static FileSystemMonitor* monitor =
      new FileSystemMonitor(makePlatformEventStreamFactory(), Preferences::standard());
  return *monitor;
}

FileSystemMonitor::FileSystemMonitor(std::unique_ptr<EventStreamFactory> factory,
                                     Preferences& preferences)
    : factory_(std::move(factory)), preferences_(preferences) {}

FileSystemMonitor::~FileSystemMonitor() {
  std::lock_guard lock(mutex_);
  stopLocked();
}

std::vector<std::string> FileSystemMonitor::paths() const {
  std::lock_guard lock(mutex_);
  return paths_;
}

void FileSystemMonitor::setDelegate(std::weak_ptr<FileSystemMonitorDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<FileSystemMonitorDelegate> FileSystemMonitor::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

bool FileSystemMonitor::addMonitorPath(const std::string& path) {
  if (!itemExists(path)) return false;
  std::lock_guard lock(mutex_);
  if (!hasPaths_) {
    hasPaths_ = true;
    paths_ = {path};
    startLocked(paths_);
    return true;
  }
  if (std::find(paths_.begin(), paths_.end(), path) != paths_.end()) return true;
  paths_.push_back(path);
  startLocked(paths_);
  return true;
}

void FileSystemMonitor::removeMonitorPath(const std::string& path) {
  std::lock_guard lock(mutex_);
  if (!hasPaths_) {
    stopLocked();
    return;
  }
  auto it = std::find(paths_.begin(), paths_.end(), path);
  if (it == paths_.end()) return;
  paths_.erase(it);
  if (paths_.empty()) {
    stopLocked();
  } else {
    startLocked(paths_);
  }
}

void FileSystemMonitor::startMonitor(const std::vector<std::string>& paths) {
  std::lock_guard lock(mutex_);
  startLocked(paths);
}

void FileSystemMonitor::stopMonitor() {
  std::lock_guard lock(mutex_);
  stopLocked();
}

bool FileSystemMonitor::wakeupMonitor() {
  std::lock_guard lock(mutex_);
  if (!hasPaths_ || paths_.empty()) return false;
  startLocked(paths_);
  return true;
}

bool FileSystemMonitor::isRunning() const {
  std::lock_guard lock(mutex_);
  return stream_ != nullptr;
}

void FileSystemMonitor::startLocked(const std::vector<std::string>& paths) {
  stopLocked();
  const int64_t since = syncEventID();
  stream_ = factory_->create(paths, static_cast<uint64_t>(since), kLatency, RunLoop::main(),
                             [this](const std::vector<FsEvent>& batch) {
                               std::vector<std::string> eventPaths;
                               std::vector<uint32_t> flags;
                               std::vector<uint64_t> ids;
                               eventPaths.reserve(batch.size());
                               flags.reserve(batch.size());
                               ids.reserve(batch.size());
                               for (const FsEvent& e : batch) {
                                 eventPaths.push_back(e.path);
                                 flags.push_back(e.flags);
                                 ids.push_back(e.id);
                               }
                               processBatch(eventPaths, flags, ids);
                             });
  if (stream_) stream_->start();
}

void FileSystemMonitor::stopLocked() {
  if (!stream_) return;
  stream_->stop();
  stream_->invalidate();
  stream_.reset();
}

void FileSystemMonitor::updateEventID() {
  uint64_t latest;
  {
    std::lock_guard lock(mutex_);
    if (!stream_) return;
    latest = stream_->latestEventId();
  }
  setSyncEventID(static_cast<int64_t>(latest));
}

int64_t FileSystemMonitor::syncEventID() const {
  const int64_t stored = preferences_.integerForKey(kSyncEventIdKey);
  return stored == 0 ? -1 : stored;
}

void FileSystemMonitor::setSyncEventID(int64_t id) { preferences_.setInteger(kSyncEventIdKey, id); }

void FileSystemMonitor::processBatch(const std::vector<std::string>& paths,
                                     const std::vector<uint32_t>& flags,
                                     const std::vector<uint64_t>& ids) {
  const size_t count = std::min({paths.size(), flags.size(), ids.size()});
  if (count > 0) {
    auto target = delegate();
    uint64_t previousId = 0;
    const std::string* previousPath = nullptr;
    for (size_t i = 0; i < count; ++i) {
      const uint32_t f = flags[i];
      const std::string& path = paths[i];
      if ((f & (fsevent::kItemCreated | fsevent::kItemRenamed)) == fsevent::kItemCreated) {
        if (target) target->fileCreated(path);
      }
      if (f & fsevent::kItemRenamed) {
        if (previousPath && ids[i] == previousId + 1) {
          if (target) target->fileMoveOrRename(*previousPath, path);
        } else if (itemExists(path)) {
          if (target) target->fileMoveIn(path);
        } else {
          if (target) target->fileMoveOut(path);
        }
        previousPath = &path;
        previousId = ids[i];
      }
      if ((f & fsevent::kItemRemoved) && target) target->fileRemove(path);
      if ((f & fsevent::kItemModified) && target) target->fileModify(path);
    }
  }
  updateEventID();
}

}  // namespace vexa
