#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"
#include "vexa/events/FileSystemMonitorDelegate.h"

namespace vexa {

class CoalescingTask;
class HostAnnouncer;
class MonitorDispatch;
class XSocketServer;

// Measures the user's Trash whenever something under it changes and tells the host
// application its new size: "TrashSizeChange" {"Used": bytes}, sent only when the size differs
// from the last one measured, and only to a connected host (the size is kept either way).
//
// Measurements run on the global queue one at a time; events arriving during one ask for a
// single further measurement, so emptying a large Trash costs two walks, not one per entry.
// Every operation is safe from any thread; nothing slow runs under the lock, and sends go out
// on a serial queue in the order the sizes were measured.
class VEXA_EXPORT MonitorTrash : public FileSystemMonitorDelegate,
                                 public std::enable_shared_from_this<MonitorTrash> {
 public:
  // Uses the shared dispatcher and the shared socket server.
  static MonitorTrash& shared();
  static std::shared_ptr<MonitorTrash> create(MonitorDispatch& dispatch, XSocketServer& server);
  ~MonitorTrash() override;
  MonitorTrash(const MonitorTrash&) = delete;
  MonitorTrash& operator=(const MonitorTrash&) = delete;

  // Makes the Trash's folders when missing, watches the Trash and measures it. The flag is not
  // used.
  void startMonitor(bool flag = false);
  void stopMonotor();
  // Measures the Trash now, on the calling thread, and reports a change.
  void sendChangedMessage();
  uint64_t preUsedSize() const;

  static uint64_t sizeOfFileWithPath(const std::string& path);
  static uint64_t folderSizeAtPath(const std::string& folder);
  static nlohmann::json commonAttributesOfFile(const std::string& path);

  // File events: each one under the Trash asks for a measurement.
  void fileCreated(const std::string& path) override;
  void fileMoveIn(const std::string& path) override;
  void fileMoveOut(const std::string& path) override;
  void fileRemove(const std::string& path) override;
  void fileModify(const std::string& path) override;

 private:
  MonitorTrash(MonitorDispatch& dispatch, XSocketServer& server);
  void changed(const std::string& path);

  MonitorDispatch& dispatch_;
  const std::unique_ptr<HostAnnouncer> announcer_;
  const std::unique_ptr<CoalescingTask> measurement_;
  mutable std::mutex lock_;  // guards the fields below
  std::string trashPath_;
  uint64_t preUsedSize_ = 0;
};

}  // namespace vexa
