#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "events/WatchQueueEngine.h"
#include "events/linux/InotifyReleasedWatches.h"
#include "events/linux/WatchQueueKernel.h"

namespace vexa {

// An FSWatchQueue's engine on inotify: one watch per watched item, whatever the number of its
// paths, and the records of each watch turned into event bits per path.
//
// Every system call goes through the WatchQueueKernel port, so a test drives it with a fake
// kernel and step(). Bits gathered for a path stay until take(): while one is waiting, later
// records only add bits (one Ready per take). A path names its item while it is watched; a
// record says nothing of the path, so `path no longer names the item` is checked by status
// against the identity taken when it was added.
//
// Thread-safe: one lock guards the tables; Ready and the kernel's wait run without it.
class InotifyWatchQueue final : public WatchQueueEngine {
 public:
  // With `ownThread` a watcher thread turns step() with a 1-second wait from the first add on,
  // and is stopped and joined on destruction; without, the owner calls step().
  InotifyWatchQueue(std::unique_ptr<WatchQueueKernel> kernel, bool ownThread);
  ~InotifyWatchQueue() override;

  void setReady(Ready ready) override;
  using WatchQueueEngine::add;
  Added add(const std::string& path, uint32_t flags) override;
  void remove(const std::string& path) override;
  void removeAll() override;
  uint32_t take(const std::string& path) override;
  std::optional<std::string> trashFolderFor(uint64_t device, const std::string& path,
                                            const std::string& userTrash) override;
  std::optional<std::string> locate(uint64_t device, uint64_t inode, const std::string& folder,
                                    bool recursive) override;

  // One turn: waits up to `timeoutMs` for records, turns them into bits, calls Ready for each
  // path that had none waiting. False once the queue is stopping.
  bool step(int timeoutMs);
  // Records read by someone else (a test, or a step), turned into bits as step() would.
  void translate(const std::vector<InotifyRecord>& records);

  // The kernel mask that delivers the records the event bits `flags` are made from.
  static uint32_t kernelMask(uint32_t flags, bool folder);
  size_t watchCount() const;

 private:
  struct Entry;
  // Paths are the owner's strings (see add), ordered by their text and found by any string.
  struct ByText {
    using is_transparent = void;
    static std::string_view text(const std::string* path) { return *path; }
    static std::string_view text(const std::string& path) { return path; }
    template <typename A, typename B>
    bool operator()(const A& a, const B& b) const {
      return text(a) < text(b);
    }
  };
  using Entries = std::map<const std::string*, Entry, ByText>;
  using Node = Entries::value_type;
  // One watched path. The item's identity and last seen size and link count are what `path no
  // longer names the item` and the size and link-count bits are judged by.
  struct Entry {
    uint64_t device = 0;
    uint64_t inode = 0;
    uint64_t size = 0;
    uint64_t links = 0;
    Node* nextOfWatch = nullptr;  // the next path of the same watch, in the order added
    int wd = -1;                  // -1 once the kernel dropped the watch
    uint32_t flags = 0;
    uint32_t pending = 0;
    bool folder = false;
    bool moved = false;  // renamed since added: the path no longer names it, by design
    bool readyCalled = false;
  };

  void translateLocked(const InotifyRecord& record, std::vector<std::string>& ready);
  uint32_t bitsFor(const InotifyRecord& record, const std::string& path, Entry& entry);
  uint32_t recheck(const std::string& path, Entry& entry);
  void raise(const std::string& path, Entry& entry, uint32_t bits, std::vector<std::string>& ready);
  void removeLocked(Entries::iterator entry);
  static bool sameItem(const std::optional<WatchedItemStatus>& now, const Entry& entry);
  void startThreadLocked();

  const std::unique_ptr<WatchQueueKernel> kernel_;
  const bool ownThread_;
  std::thread thread_;
  std::atomic<bool> stopping_{false};
  // The last step read records (watcher thread only).
  bool busy_ = false;
  static constexpr std::chrono::milliseconds kBatchPause{3};

  mutable std::mutex mutex_;  // guards the fields below
  Ready ready_;
  Entries entries_;
  // Each live watch: the first of its paths, which lead to the others. A watch given back
  // leaves at once; its records read before the confirmation are dropped.
  std::unordered_map<int, Node*> watches_;
  InotifyReleasedWatches released_;
};

}  // namespace vexa
