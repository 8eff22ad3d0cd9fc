#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"
#include "vexa/events/FileSystemMonitorDelegate.h"

namespace vexa {

class CoalescingTask;
class HostAnnouncer;
class MonitorDispatch;
class MountWatch;
class XSocketServer;

// Measures the user's Trash whenever something under it changes and tells the host
// application its new size: "TrashSizeChange" {"Used": bytes}, sent only when the size differs
// from the last one measured, and only to a connected host (the size is kept either way).
//
// The size is the home Trash's plus those of the Trashes on other mounted volumes that exist
// (never made there). The mount table is read again at each measurement and a mount or unmount
// asks for one, so a volume's Trash counts and is watched while it is mounted. A Trash folder
// deleted or replaced is made again and watched again at the next measurement.
//
// Measurements run on the global queue one at a time, once events have paused for half a
// second, or two seconds after the first event of a burst that goes on; events arriving during
// one ask for a single further measurement, so emptying a large Trash costs a few walks, not
// one per entry.
// Every operation is safe from any thread; nothing slow runs under the lock, and sends go out
// on a serial queue in the order the sizes were measured.
class VEXA_EXPORT MonitorTrash : public FileSystemMonitorDelegate,
                                 public std::enable_shared_from_this<MonitorTrash> {
 public:
  // Uses the shared dispatcher and the shared socket server.
  static MonitorTrash& shared();
  // `mountTable` is the mount table to read and watch (normally /proc/self/mountinfo).
  static std::shared_ptr<MonitorTrash> create(MonitorDispatch& dispatch, XSocketServer& server,
                                              std::string mountTable = kMountTable);
  static constexpr const char* kMountTable = "/proc/self/mountinfo";
  // How long events must pause before the measurement they ask for, and how long at most a
  // burst of events may put it off.
  static constexpr double kSettleSeconds = 0.5;
  static constexpr double kLongestWaitSeconds = 2.0;
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
  MonitorTrash(MonitorDispatch& dispatch, XSocketServer& server, std::string mountTable);
  void changed(const std::string& path);
  void settleThenMeasure(double seconds);
  // Registers the Trashes found now and unregisters those gone; the home Trash again when it
  // is no longer the folder registered. Answers every Trash folder to measure.
  std::vector<std::string> refreshTrashes();

  MonitorDispatch& dispatch_;
  const std::unique_ptr<HostAnnouncer> announcer_;
  // This instance, for the measurements: set by create() once it is owned.
  const std::shared_ptr<std::weak_ptr<MonitorTrash>> self_;
  const std::unique_ptr<CoalescingTask> measurement_;
  const std::string mountTable_;
  std::mutex registration_;                 // held while registering with the dispatcher
  mutable std::mutex lock_;                 // guards the fields below
  std::unique_ptr<MountWatch> mountWatch_;  // while monitoring
  std::string trashPath_;
  std::pair<uint64_t, uint64_t> trashIdentity_{0, 0};  // (device, inode) registered
  std::vector<std::string> volumeTrashes_;             // registered
  bool monitoring_ = false;
  // A measurement is asked for once events settle; when the first and the last event asking
  // for it came.
  bool measurementDue_ = false;
  std::chrono::steady_clock::time_point firstEvent_;
  std::chrono::steady_clock::time_point lastEvent_;
  bool trashReplaced_ = false;  // an event named the Trash folder itself: registered anew
  bool trashUnusable_ = false;  // the home Trash path names no folder (told once)
  uint64_t preUsedSize_ = 0;
};

}  // namespace vexa
