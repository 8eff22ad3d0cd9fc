#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vexa {

// What an FSWatchQueue asks of the platform: kernel watches on single items, the event bits
// gathered for each watched path, and finding a moved item again by its identity.
//
// Every operation is safe from any thread.
class WatchQueueEngine {
 public:
  // Called on the watcher thread when `path` has bits waiting and none were waiting before:
  // the owner schedules one take() for it. Must not block or call back into the engine.
  using Ready = std::function<void(const std::string& path)>;

  struct Added {
    int wd = -1;  // the kernel's watch, shared by the paths of one item
    uint64_t device = 0;
    uint64_t inode = 0;
    int error = 0;  // errno when the path could not be watched
  };

  virtual ~WatchQueueEngine() = default;

  // Set before the first add.
  virtual void setReady(Ready ready) = 0;
  // Watches `path` for the event bits `flags`; a path watched already has its flags widened to
  // the union. The engine keeps a reference to the caller's string, not a copy (a watch costs
  // one path in memory, the owner's): it must stay alive and unchanged until the path is
  // removed. A temporary cannot be passed.
  virtual Added add(const std::string& path, uint32_t flags) = 0;
  Added add(std::string&& path, uint32_t flags) = delete;
  virtual void remove(const std::string& path) = 0;
  virtual void removeAll() = 0;
  // The bits gathered for `path` since the last take, cleared.
  virtual uint32_t take(const std::string& path) = 0;

  // The Trash folder ("…/files") of the file system `device` that holds `path`: `userTrash`
  // when it lies on that device, else the mount's own Trash for this user.
  virtual std::optional<std::string> trashFolderFor(uint64_t device, const std::string& path,
                                                    const std::string& userTrash) = 0;
  // The entry of `folder` (of its whole tree when `recursive`) that is the item (device,
  // inode); symbolic links are not followed.
  virtual std::optional<std::string> locate(uint64_t device, uint64_t inode,
                                            const std::string& folder, bool recursive) = 0;
};

// The platform's engine (inotify on Linux); nothing when the kernel gives no event queue.
std::unique_ptr<WatchQueueEngine> makePlatformWatchQueueEngine();

}  // namespace vexa
