#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "vexa/Export.h"
#include "vexa/events/FileSystemMonitorDelegate.h"

namespace vexa {

class DispatchQueue;
class FileSystemMonitor;

// Subscribes monitors to file-system events by folder.
//
// A registrant gives a path and itself; the dispatcher keeps the event stream watching exactly
// the registered paths and hands every event to each delegate whose path is a plain string
// prefix of the event's path and that hears it (`hearsPath`), asynchronously on the global
// queue: one call per (event, path, delegate), in event order for each delegate. A delegate
// registered under two matching paths hears an event twice, and a move within one watched tree
// reaches each of its delegates twice, once for the source and once for the target: registrants
// must tolerate repeats. Moves into or out of the Trash are reported as a move-in of the new
// location. Registered delegates are retained. Safe from any thread; the events arrive on the
// main thread. Registration changes wait for one another (each may restart the stream, a crawl
// of the new trees); events are dispatched meanwhile.
class VEXA_EXPORT MonitorDispatch : public FileSystemMonitorDelegate,
                                    public std::enable_shared_from_this<MonitorDispatch> {
 public:
  static MonitorDispatch& shared();
  static std::shared_ptr<MonitorDispatch> create(FileSystemMonitor& monitor, DispatchQueue& queue);

  // Records nothing when the path does not exist.
  void addMonitorPath(const std::string& path,
                      const std::shared_ptr<FileSystemMonitorDelegate>& delegate);
  void removeMonitorPath(const std::string& path,
                         const std::shared_ptr<FileSystemMonitorDelegate>& delegate);

  // The registered paths with their delegates, in registration order.
  std::vector<std::pair<std::string, std::vector<std::shared_ptr<FileSystemMonitorDelegate>>>>
  registrations() const;

  void fileCreated(const std::string& path) override;
  void fileMoveIn(const std::string& path) override;
  void fileMoveOut(const std::string& path) override;
  void fileMoveOrRename(const std::string& source, const std::string& target) override;
  void fileRemove(const std::string& path) override;
  void fileModify(const std::string& path) override;
  // Reaches each delegate whose registered path overlaps the folder, once per registration,
  // with the narrower of the two: its own path when that lies inside the folder.
  void eventsLost(const std::string& folder) override;
  // Calls of a batch wait beside the inboxes until its end, when each delegate's inbox takes
  // them at once and its drain is started: the queue's workers do not take them one by one
  // while the batch is still coming.
  void batchBegins(size_t events) override;
  void batchEnds() override;

 private:
  using Registration =
      std::pair<std::string, std::vector<std::shared_ptr<FileSystemMonitorDelegate>>>;
  using Call = void (FileSystemMonitorDelegate::*)(const std::string&);
  // The paths of one batch, each copied once whatever the number of delegates that hear it.
  // A deque: paths already in it stay where they are while the batch adds more, so a delegate
  // still draining an earlier batch may read them meanwhile.
  struct PathLog {
    std::deque<std::string> paths;
  };
  // One call waiting: `call` with `path`, or, without `call`, a rename (`path` to `target`)
  // or events lost in the folder `path`. The paths live in a log the inbox holds.
  struct Pending {
    Call call = nullptr;
    const std::string* path = nullptr;
    const std::string* target = nullptr;
  };
  // The calls waiting for one delegate, run in order by one task on the queue at a time.
  struct Inbox {
    explicit Inbox(std::shared_ptr<FileSystemMonitorDelegate> d) : delegate(std::move(d)) {}
    const std::shared_ptr<FileSystemMonitorDelegate> delegate;
    std::mutex mutex;
    std::vector<Pending> calls;
    std::vector<std::shared_ptr<const PathLog>> logs;  // those the waiting calls point into
    bool draining = false;
    // The calls of the batch under way, handed over when it ends; in held_ meanwhile. Guarded
    // by the dispatcher's mutex_, not the inbox's: a call costs no lock of its own.
    std::vector<Pending> batch;
    bool held = false;
  };

  MonitorDispatch(FileSystemMonitor* monitor, DispatchQueue& queue);
  void fanOut(const std::string& path, Call call);
  // The batch's copy of `path` (a log of its own for a call outside a batch); mutex_ held.
  const std::string* logLocked(const std::string& path);
  // Hands the call to the delegate's inbox; mutex_ held.
  void deliverLocked(const std::shared_ptr<FileSystemMonitorDelegate>& delegate, Pending call);
  // After an event's calls are delivered; mutex_ held.
  void callEndsLocked();
  static void drain(const std::shared_ptr<Inbox>& inbox);

  // Serializes registration changes and the stream restarts they cause, so that the stream's
  // paths end as the table's keys. Taken before mutex_; dispatch never takes it.
  std::mutex changeMutex_;
  FileSystemMonitor* fsMonitor_;  // guarded by changeMutex_; fetched on first registration
  bool attached_ = false;         // guarded by changeMutex_
  DispatchQueue& queue_;
  // Guards the table; held only briefly, never across a call into the monitor.
  mutable std::mutex mutex_;
  std::vector<Registration> monitorDict_;
  // By delegate: a handful, looked up for every call. Guarded by mutex_, as the rest.
  std::vector<std::pair<const FileSystemMonitorDelegate*, std::shared_ptr<Inbox>>> inboxes_;
  int batches_ = 0;                            // batches begun and not ended
  size_t batchEvents_ = 0;                     // how many events the outermost one holds
  static constexpr size_t kBatchRoom = 16384;  // calls an inbox makes room for, at most
  std::vector<std::shared_ptr<Inbox>> held_;   // inboxes given calls meanwhile; by mutex_
  std::shared_ptr<PathLog> log_;               // the paths of the batch or call; by mutex_
};

}  // namespace vexa
