#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "events/linux/InotifyRecord.h"
#include "events/linux/InotifyWatchTable.h"

namespace vexa {

// Turns the records of a recursive watch (one inotify watch per folder of some trees) into
// stream events: creations, removals and modifications; renames, as two events in a row when
// both halves of a move are seen, or one (a move in or out) when only one is; a must-scan of
// every tree when the kernel's queue overflowed. Keeps the watch table in step with renames,
// moves out and the kernel's IN_IGNORED.
//
// Pure: no system calls and no clock of its own. What needs the kernel (watching a new folder,
// giving watches back) it asks of its Effects, in order, while it translates. The first half of
// a move is held until its second half comes or its deadline passes; the owner reads whatever
// the kernel has queued before it calls expire(), and does not wait past deadline().
//
// Not thread-safe: one reader owns it.
class InotifyTranslator {
 public:
  using Clock = std::chrono::steady_clock;
  // How long the second half of a move may lag behind its first (the kernel queues both at
  // once, but a read may end between them).
  static constexpr std::chrono::milliseconds kMovePairing{10};

  // What translation asks of its owner, called synchronously from translate() and expire().
  class Effects {
   public:
    virtual ~Effects() = default;
    // One stream event.
    virtual void emit(const std::string& path, uint32_t flags) = 0;
    // The two events of a rename within the trees, `flags` each: consecutive identifiers, and
    // one batch, since a rename is told from a move in or out by just that.
    virtual void emitRename(const std::string& from, const std::string& to, uint32_t flags) = 0;
    // Watches the folder at `path` and every folder under it, recording them in the table.
    // With `reportContents` (a new folder), what the scan finds is emitted as created and
    // passed to reportedByScan().
    virtual void watchTree(const std::string& path, bool reportContents) = 0;
    // Gives a watch back to the kernel; true when an IN_IGNORED will confirm it.
    virtual bool releaseWatch(int wd) = 0;
    // The kernel's queue overflowed: events were lost and the trees are crawled again.
    virtual void overflowed() = 0;
  };

  // Both outlive the translator.
  InotifyTranslator(InotifyWatchTable& table, Effects& effects);

  // The trees' roots, without trailing slashes.
  void setRoots(std::vector<std::string> roots) { roots_ = std::move(roots); }
  const std::vector<std::string>& roots() const { return roots_; }

  // One record, read at `now`.
  void translate(const InotifyRecord& record, Clock::time_point now);
  // When a held move half must be settled; nothing when none is held.
  std::optional<Clock::time_point> deadline() const;
  // Settles a held move half whose deadline has passed by `now` as a move out.
  void expire(Clock::time_point now);
  // Settles a held move half now.
  void flush();

  // A scan told of `path` as created: the kernel's own IN_CREATE for it, if one comes, is
  // passed over.
  void reportedByScan(const std::string& path) { reportedByScan_.insert(path); }
  // The events so far are handed over: a later IN_CREATE of a scanned path is news again.
  void handedOver() { reportedByScan_.clear(); }

  // `name` inside the folder `dir`.
  static std::string childPath(const std::string& dir, const std::string& name);

 private:
  struct PendingMove {
    uint32_t cookie = 0;
    std::string path;
    bool isDir = false;
    Clock::time_point deadline;
  };

  void translateNamed(const InotifyRecord& record, const std::string& path, Clock::time_point now);
  void recrawl();
  bool isRoot(const std::string& path) const;

  InotifyWatchTable& table_;
  Effects& effects_;
  std::vector<std::string> roots_;
  std::optional<PendingMove> pendingMove_;
  std::unordered_set<std::string> reportedByScan_;
};

}  // namespace vexa
