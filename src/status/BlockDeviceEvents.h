#pragma once

#include <functional>
#include <memory>
#include <string>

namespace vexa {

// A block device the system announced.
struct BlockDeviceEvent {
  enum class Kind { Appeared, Disappeared };
  Kind kind = Kind::Appeared;
  std::string name;        // the kernel's name: "sdb1", "dm-0"
  std::string device;      // "major:minor"
  bool mountable = false;  // holds a file system
  bool writable = false;   // neither the partition nor its disk is read-only
};

// The source of block-device announcements.
class BlockDeviceEvents {
 public:
  virtual ~BlockDeviceEvents() = default;
  // Hands every announcement to `handle` on the calling thread until stop(); blocks. False at
  // once when announcements cannot be had.
  virtual bool run(const std::function<void(const BlockDeviceEvent&)>& handle) = 0;
  // Ends run() soon; safe from any thread, before or during run().
  virtual void stop() = 0;

  // udev's announcements of the running machine.
  static std::unique_ptr<BlockDeviceEvents> system();
};

}  // namespace vexa
