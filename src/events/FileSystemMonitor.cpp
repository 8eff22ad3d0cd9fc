#include "vexa/events/FileSystemMonitor.h"

#include <algorithm>

#include "events/EventStream.h"
#include "util/PathName.h"
#include "vexa/util/Preferences.h"
#include "vexa/util/RunLoop.h"

namespace vexa {

namespace {

constexpr double kLatency = 1.0;
constexpr const char* kSyncEventIdKey = "SyncEventID";

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
  std::lock_guard restarting(restartMutex_);
  stop();
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
  if (!PathName::entryExists(path)) return false;
  std::lock_guard restarting(restartMutex_);
  std::vector<std::string> paths;
  {
    std::lock_guard lock(mutex_);
    if (!hasPaths_) {
      hasPaths_ = true;
      paths_ = {path};
    } else if (std::find(paths_.begin(), paths_.end(), path) != paths_.end()) {
      return true;
    } else {
      paths_.push_back(path);
    }
    paths = paths_;
  }
  restart(paths);
  return true;
}

void FileSystemMonitor::removeMonitorPath(const std::string& path) {
  std::lock_guard restarting(restartMutex_);
  std::vector<std::string> paths;
  {
    std::lock_guard lock(mutex_);
    if (hasPaths_) {
      auto it = std::find(paths_.begin(), paths_.end(), path);
      if (it == paths_.end()) return;
      paths_.erase(it);
      paths = paths_;
    }
    if (stoppedOnRequest_) return;
  }
  if (paths.empty()) {
    stop();
  } else {
    restart(paths);
  }
}

void FileSystemMonitor::startMonitor(const std::vector<std::string>& paths) {
  std::lock_guard restarting(restartMutex_);
  restart(paths);
}

void FileSystemMonitor::stopMonitor() {
  std::lock_guard restarting(restartMutex_);
  {
    std::lock_guard lock(mutex_);
    stoppedOnRequest_ = true;
  }
  stop();
}

bool FileSystemMonitor::wakeupMonitor() {
  std::lock_guard restarting(restartMutex_);
  std::vector<std::string> paths;
  {
    std::lock_guard lock(mutex_);
    if (!hasPaths_ || paths_.empty()) return false;
    paths = paths_;
  }
  restart(paths);
  return true;
}

bool FileSystemMonitor::isRunning() const {
  std::lock_guard lock(mutex_);
  return stream_ != nullptr;
}

void FileSystemMonitor::restart(const std::vector<std::string>& paths) {
  {
    std::lock_guard lock(mutex_);
    stoppedOnRequest_ = false;
  }
  stop();
  const int64_t since = syncEventID();
  std::unique_ptr<EventStream> stream =
      factory_->create(paths, static_cast<uint64_t>(since), kLatency, RunLoop::main(),
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
  if (!stream) return;
  EventStream* starting = stream.get();
  {
    std::lock_guard lock(mutex_);
    stream_ = std::move(stream);
  }
  // Slow (the new trees are crawled), so outside mutex_: batches and the other accessors go on
  // meanwhile. Only stop() could end the stream, and it waits for restartMutex_.
  starting->start();
}

void FileSystemMonitor::stop() {
  std::unique_ptr<EventStream> stream;
  {
    std::lock_guard lock(mutex_);
    stream = std::move(stream_);
  }
  if (!stream) return;
  stream->stop();
  stream->invalidate();
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
    // Ends the batch however the loop is left.
    struct Batch {
      FileSystemMonitorDelegate* target;
      Batch(FileSystemMonitorDelegate* t, size_t events) : target(t) {
        if (target) target->batchBegins(events);
      }
      ~Batch() {
        if (target) target->batchEnds();
      }
      Batch(const Batch&) = delete;
      Batch& operator=(const Batch&) = delete;
    } batch(target.get(), count);
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
        } else if (PathName::entryExists(path)) {
          if (target) target->fileMoveIn(path);
        } else {
          if (target) target->fileMoveOut(path);
        }
        previousPath = &path;
        previousId = ids[i];
      }
      if ((f & fsevent::kItemRemoved) && target) target->fileRemove(path);
      if ((f & fsevent::kItemModified) && target) target->fileModify(path);
      if ((f & fsevent::kMustScanSubDirs) && target) target->eventsLost(path);
    }
  }
  updateEventID();
}

}  // namespace vexa
