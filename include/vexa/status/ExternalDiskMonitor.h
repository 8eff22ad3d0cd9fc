#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "vexa/Export.h"
#include "vexa/status/ExternalDiskDelegate.h"

namespace vexa {

class BlockDeviceEvents;
class DispatchQueue;
class MachineFiles;
struct BlockDeviceEvent;

// Follows disks that appear and go. For each new device holding a file system it waits (on a
// worker of the concurrent "com.dispatch.mount" queue) until the device shows in the mount
// table, then tells its delegate the mount path; it gives up after about 31 seconds. A device
// is found in the table by its major:minor, else by the last component of the mounted source
// ("/dev/sdb1" for "sdb1").
//
// A disk that goes reports unmountedPath for the path it had. So does a volume that leaves the
// mount table while its device stays: on Linux a plain unmount announces nothing else.
class VEXA_EXPORT ExternalDiskMonitor {
 public:
  static ExternalDiskMonitor& shared();
  // A monitor of `events`, reading the mount table (/proc/self/mountinfo) under `files` and
  // giving a mount up after `giveUp`.
  ExternalDiskMonitor(std::unique_ptr<BlockDeviceEvents> events,
                      std::shared_ptr<MachineFiles> files,
                      std::chrono::milliseconds giveUp = std::chrono::milliseconds(31000));
  ~ExternalDiskMonitor();
  ExternalDiskMonitor(const ExternalDiskMonitor&) = delete;
  ExternalDiskMonitor& operator=(const ExternalDiskMonitor&) = delete;

  // Follows the devices on the calling thread until the announcements end; blocks. Then sets
  // status() to 0.
  void startMonitor();
  // Forgets the devices followed; the loop of startMonitor goes on.
  void stopMonitor();
  // Ends the loop of startMonitor (the monitor's own addition: stopMonitor leaves it running).
  void endMonitor();

  void addMount(const std::string& name, bool writable, const std::string& device = {});
  void removeFromMount(const std::string& name);
  void findMountPath(const std::string& name, const std::string& path);
  bool hasMountPoint(const std::string& name) const;
  // Waits for `name` to show in the mount table; the work each new device is queued with.
  void getMonutPath(const std::string& name);
  // The mount table changed: wakes the workers waiting for a mount path and reports the
  // followed volumes no longer in it. While startMonitor runs, a watch of the table calls it.
  void mountTableChanged();

  std::shared_ptr<ExternalDiskDelegate> delegate() const;
  void setDelegate(std::shared_ptr<ExternalDiskDelegate> delegate);
  int32_t status() const { return status_.load(); }

 private:
  struct Mount {
    bool writable = false;
    std::string device;  // major:minor, when known
    std::string path;    // empty until found
  };
  void handle(const BlockDeviceEvent& event);
  std::optional<std::string> mountPathOf(const std::string& name, const std::string& device) const;

  void checkUnmounts();

  std::unique_ptr<BlockDeviceEvents> events_;
  std::shared_ptr<MachineFiles> files_;
  std::chrono::milliseconds giveUp_;
  std::unique_ptr<DispatchQueue> queue_;
  mutable std::mutex lock_;
  std::map<std::string, Mount> mounts_;
  // Workers of the queue still looking for a mount path; the destructor waits for them.
  int looking_ = 0;
  std::condition_variable lookingDone_;
  // Counts the mount table's changes; workers wait for it to move.
  uint64_t tableGeneration_ = 0;
  std::condition_variable tableChanged_;
  std::shared_ptr<ExternalDiskDelegate> delegate_;
  std::atomic<int32_t> status_{0};
  std::atomic<bool> running_{false};
};

}  // namespace vexa
