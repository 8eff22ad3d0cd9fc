#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vexa/Export.h"
#include "vexa/events/FileSystemMonitorDelegate.h"

namespace vexa {

class EventStream;
class EventStreamFactory;
class Preferences;

// The process's one recursive file-system event stream over a set of directory trees.
//
// Batches arrive on the main run loop one second after their first event and are turned into
// the delegate's call-backs (a lost-events word becomes eventsLost), synchronously on the main
// thread. The last identifier handled is kept in the preferences as "SyncEventID" after every
// batch, so that identifiers keep growing across restarts. Path changes and start/stop are meant
// for the main thread; they are also safe from others. A path change returns once the stream
// watches the new set (a crawl of the new trees); changes wait for one another, but batches and the
// other accessors do not wait for them.
class VEXA_EXPORT FileSystemMonitor {
 public:
  static FileSystemMonitor& shared();

  // A monitor over the given stream service, keeping its identifier in `preferences`.
  FileSystemMonitor(std::unique_ptr<EventStreamFactory> factory, Preferences& preferences);
  ~FileSystemMonitor();
  FileSystemMonitor(const FileSystemMonitor&) = delete;
  FileSystemMonitor& operator=(const FileSystemMonitor&) = delete;

  std::vector<std::string> paths() const;
  // Not retained.
  void setDelegate(std::weak_ptr<FileSystemMonitorDelegate> delegate);

  // False, and nothing changes, when nothing exists at the path.
  bool addMonitorPath(const std::string& path);
  // Restarts the stream over the paths left, unless stopMonitor() stopped it: then the path is
  // only forgotten, so that a program stopping its monitors one by one does not crawl the
  // remaining trees again after each.
  void removeMonitorPath(const std::string& path);
  void startMonitor(const std::vector<std::string>& paths);
  void stopMonitor();
  // Restarts the stream over the current paths; false when there are none.
  bool wakeupMonitor();
  void updateEventID();
  bool isRunning() const;

  // "SyncEventID": a stored 0 (or nothing stored) reads as -1, "events from now on".
  int64_t syncEventID() const;
  void setSyncEventID(int64_t id);

  // The batch call-back: turns one batch of (path, flag word, identifier) into call-backs and
  // then stores the stream's latest identifier. Runs on the stream's run loop.
  void processBatch(const std::vector<std::string>& paths, const std::vector<uint32_t>& flags,
                    const std::vector<uint64_t>& ids);

 private:
  // Both with restartMutex_ held.
  void restart(const std::vector<std::string>& paths);
  void stop();
  std::shared_ptr<FileSystemMonitorDelegate> delegate() const;

  std::unique_ptr<EventStreamFactory> factory_;
  Preferences& preferences_;
  // Serializes stream restarts and stops (and so the factory); taken before mutex_, held through
  // a stream's start.
  std::mutex restartMutex_;
  // Guards the fields below; never held while a stream starts.
  mutable std::mutex mutex_;
  std::vector<std::string> paths_;
  bool hasPaths_ = false;
  bool stoppedOnRequest_ = false;  // by stopMonitor(), until a path is added or a start
  std::weak_ptr<FileSystemMonitorDelegate> delegate_;
  std::unique_ptr<EventStream> stream_;
};

}  // namespace vexa
