#include "events/linux/InotifyTranslator.h"

#include <sys/inotify.h>

#include <algorithm>

#include "events/EventStream.h"

namespace vexa {

InotifyTranslator::InotifyTranslator(InotifyWatchTable& table, Effects& effects)
    : table_(table), effects_(effects) {}

std::string InotifyTranslator::childPath(const std::string& dir, const std::string& name) {
  return dir == "/" ? "/" + name : dir + "/" + name;
}

void InotifyTranslator::translate(const InotifyRecord& record, Clock::time_point now) {
  if (record.mask & IN_Q_OVERFLOW) {
    recrawl();
    return;
  }
  if (record.mask & IN_IGNORED) {
    table_.ignored(record.wd);
    return;
  }
  const std::optional<std::string> dir = table_.pathOf(record.wd);
  if (!dir) return;  // a watch forgotten, or given back and not yet confirmed
  if (pendingMove_ && !((record.mask & IN_MOVED_TO) && record.cookie == pendingMove_->cookie)) {
    flush();
  }
  if (record.name.empty()) {
    // Records about a watched item itself: only a root's own fate is news.
    if (record.mask & (IN_DELETE_SELF | IN_MOVE_SELF)) {
      if (isRoot(*dir)) effects_.emit(*dir, fsevent::kRootChanged);
    } else if (record.mask & IN_MODIFY) {
      effects_.emit(*dir, fsevent::kItemModified | fsevent::kItemIsFile);
    }
    return;
  }
  translateNamed(record, childPath(*dir, record.name), now);
}

void InotifyTranslator::translateNamed(const InotifyRecord& record, const std::string& path,
                                       Clock::time_point now) {
  const bool isDir = record.mask & IN_ISDIR;
  const uint32_t kind = isDir ? fsevent::kItemIsDir : fsevent::kItemIsFile;
  if (record.mask & IN_CREATE) {
    if (reportedByScan_.erase(path) > 0) return;  // the scan of a new folder told of it
    effects_.emit(path, fsevent::kItemCreated | kind);
    if (isDir) effects_.watchTree(path, true);
  }
  if (record.mask & IN_DELETE) effects_.emit(path, fsevent::kItemRemoved | kind);
  if (record.mask & IN_MODIFY) effects_.emit(path, fsevent::kItemModified | kind);
  if (record.mask & IN_MOVED_FROM) {
    pendingMove_ = PendingMove{record.cookie, path, isDir, now + kMovePairing};
  }
  if (record.mask & IN_MOVED_TO) {
    if (pendingMove_) {
      // Both halves seen: a rename within the trees.
      const PendingMove from = std::move(*pendingMove_);
      pendingMove_.reset();
      effects_.emitRename(from.path, path, fsevent::kItemRenamed | kind);
      if (isDir) table_.renameTree(from.path, path);
    } else {
      effects_.emit(path, fsevent::kItemRenamed | kind);  // moved in from outside
      if (isDir) effects_.watchTree(path, false);
    }
  }
}

std::optional<InotifyTranslator::Clock::time_point> InotifyTranslator::deadline() const {
  if (!pendingMove_) return std::nullopt;
  return pendingMove_->deadline;
}

void InotifyTranslator::expire(Clock::time_point now) {
  if (pendingMove_ && now >= pendingMove_->deadline) flush();
}

void InotifyTranslator::flush() {
  if (!pendingMove_) return;
  const PendingMove move = std::move(*pendingMove_);
  pendingMove_.reset();
  effects_.emit(move.path,
                fsevent::kItemRenamed | (move.isDir ? fsevent::kItemIsDir : fsevent::kItemIsFile));
  if (move.isDir) {
    // Moved out: its watches must not follow it.
    table_.forgetTree(move.path, [this](int wd) { return effects_.releaseWatch(wd); });
  }
}

void InotifyTranslator::recrawl() {
  flush();
  // The kernel answers the existing watch for a folder watched already, so crawling again only
  // adds what is missing; the table is rebuilt from what the crawl finds.
  table_.clear();
  for (const auto& root : roots_) {
    effects_.watchTree(root, false);
    effects_.emit(root, fsevent::kMustScanSubDirs);
  }
  effects_.overflowed();
}

bool InotifyTranslator::isRoot(const std::string& path) const {
  return std::find(roots_.begin(), roots_.end(), path) != roots_.end();
}

}  // namespace vexa
