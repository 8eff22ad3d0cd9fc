#include "events/linux/InotifyWatcher.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "util/RunGuarded.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kDirectoryMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                    IN_MODIFY | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR |
                                    IN_EXCL_UNLINK;
constexpr uint32_t kFileMask = IN_MODIFY | IN_DELETE_SELF | IN_MOVE_SELF;
// How long a move's second half may lag behind its first before the first counts as a move out.
constexpr int kMovePairingMs = 10;

std::string normalized(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

bool isUnder(const std::string& path, const std::string& root) {
  if (root == "/") return !path.empty() && path[0] == '/';
  return path.size() >= root.size() && path.compare(0, root.size(), root) == 0 &&
         (path.size() == root.size() || path[root.size()] == '/');
}

std::string join(const std::string& dir, const char* name) {
  return dir == "/" ? "/" + std::string(name) : dir + "/" + name;
}

}  // namespace

std::shared_ptr<InotifyWatcher> InotifyWatcher::create(Options options) {
  std::shared_ptr<InotifyWatcher> watcher(new InotifyWatcher(options));
  watcher->inotifyFd_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  watcher->wakeFd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (watcher->inotifyFd_ < 0 || watcher->wakeFd_ < 0) {
    SystemLog::log("cannot start watching files: %s (fs.inotify.max_user_instances?)",
                   std::strerror(errno));
    return nullptr;
  }
  if (options.ownThread)
    watcher->thread_ = std::thread([raw = watcher.get()] { raw->threadMain(); });
  return watcher;
}

InotifyWatcher::InotifyWatcher(Options options) : options_(options) {}

InotifyWatcher::~InotifyWatcher() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  if (wakeFd_ >= 0) {
    const uint64_t one = 1;
    [[maybe_unused]] ssize_t n = ::write(wakeFd_, &one, sizeof one);
  }
  if (thread_.joinable()) thread_.join();
  if (inotifyFd_ >= 0) ::close(inotifyFd_);
  if (wakeFd_ >= 0) ::close(wakeFd_);
}

uint64_t InotifyWatcher::subscribe(const std::vector<std::string>& roots, uint64_t sinceWhen,
                                   double latency, RunLoop loop, EventStream::Callback callback) {
  uint64_t token;
  {
    std::lock_guard lock(mutex_);
    token = subscription_.token + 1;
    subscription_.token = token;
    subscription_.roots.clear();
    for (const auto& r : roots) subscription_.roots.push_back(normalized(r));
    // "From now on" means after the newest event seen so far, not whatever is still pending.
    subscription_.sinceWhen = sinceWhen == kEventIdSinceNow ? lastId_.load() : sinceWhen;
    subscription_.latency = latency;
    subscription_.loop = std::move(loop);
    subscription_.callback = std::move(callback);
    subscription_.active = true;
    unsubscribedAt_.reset();
    ++requestedGeneration_;
    // Identifiers continue after the last one handled, across restarts of the process.
    if (sinceWhen != kEventIdSinceNow) {
      uint64_t current = lastId_.load();
      while (current < sinceWhen && !lastId_.compare_exchange_weak(current, sinceWhen)) {
      }
    }
  }
  const uint64_t one = 1;
  [[maybe_unused]] ssize_t n = ::write(wakeFd_, &one, sizeof one);
  return token;
}

void InotifyWatcher::unsubscribe(uint64_t token) {
  {
    std::lock_guard lock(mutex_);
    if (token != subscription_.token || !subscription_.active) return;
    subscription_.active = false;
    subscription_.callback = nullptr;
    unsubscribedAt_ = Clock::now();
  }
  const uint64_t one = 1;
  [[maybe_unused]] ssize_t n = ::write(wakeFd_, &one, sizeof one);
}

bool InotifyWatcher::waitUntilSettled(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return settled_.wait_for(lock, timeout,
                           [this] { return settledGeneration_ == requestedGeneration_; });
}

size_t InotifyWatcher::watchCount() const {
  std::lock_guard lock(mutex_);
  return watchCount_;
}

void InotifyWatcher::threadMain() {
  runGuarded("file watcher", [this] {
    while (step()) {
    }
  });
}

bool InotifyWatcher::step(int maxWaitMs) {
  uint64_t requested;
  int timeout = -1;
  {
    std::lock_guard lock(mutex_);
    if (stopping_) return false;
    requested = requestedGeneration_;
  }
  if (requested != appliedGeneration_) reconcile();
  {
    std::lock_guard lock(mutex_);
    const auto now = Clock::now();
    auto until = [&](Clock::time_point when) {
      const auto ms = std::chrono::ceil<std::chrono::milliseconds>(when - now).count();
      const int clamped = static_cast<int>(std::clamp<long long>(ms, 0, 1 << 30));
      timeout = timeout < 0 ? clamped : std::min(timeout, clamped);
    };
    if (!pending_.empty() && subscription_.active && !deliveryPosted_) {
      until(firstPending_ + std::chrono::duration_cast<Clock::duration>(
                                std::chrono::duration<double>(subscription_.latency)));
    }
    if (unsubscribedAt_) until(*unsubscribedAt_ + options_.grace);
    if (requestedGeneration_ != requested) timeout = 0;
  }
  if (maxWaitMs >= 0) timeout = timeout < 0 ? maxWaitMs : std::min(timeout, maxWaitMs);
  pollfd fds[2] = {{inotifyFd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
  const int ready = ::poll(fds, 2, timeout);
  if (ready > 0 && (fds[1].revents & POLLIN)) {
    uint64_t count;
    [[maybe_unused]] ssize_t n = ::read(wakeFd_, &count, sizeof count);
  }
  if (ready > 0 && (fds[0].revents & POLLIN)) readEvents();
  deliverDue();

  bool expired = false;
  {
    std::lock_guard lock(mutex_);
    if (unsubscribedAt_ && !subscription_.active &&
        Clock::now() >= *unsubscribedAt_ + options_.grace) {
      expired = true;
      unsubscribedAt_.reset();
      pending_.clear();
    }
  }
  if (expired) {
    // Nobody came back for the trees: give their watches back to the kernel.
    for (const auto& root : watchedRoots_) forgetTree(root, true);
    watchedRoots_.clear();
    std::lock_guard lock(mutex_);
    watchCount_ = watchOfPath_.size();
  }
  return true;
}

void InotifyWatcher::reconcile() {
  std::vector<std::string> roots;
  uint64_t generation;
  {
    std::lock_guard lock(mutex_);
    roots = subscription_.roots;
    generation = requestedGeneration_;
  }
  for (auto it = watchOfPath_.begin(); it != watchOfPath_.end();) {
    if (underRoots(it->first, roots)) {
      ++it;
      continue;
    }
    inotify_rm_watch(inotifyFd_, it->second);
    pathOfWatch_.erase(it->second);
    it = watchOfPath_.erase(it);
  }
  const std::vector<std::string> previous = watchedRoots_;
  watchedRoots_ = roots;
  for (const auto& root : roots) {
    if (!underRoots(root, previous)) addTree(root, false);
  }
  appliedGeneration_ = generation;
  std::lock_guard lock(mutex_);
  settledGeneration_ = generation;
  watchCount_ = watchOfPath_.size();
  settled_.notify_all();
}

void InotifyWatcher::readEvents() {
  alignas(struct inotify_event) char buffer[64 * 1024];
  for (;;) {
    const ssize_t n = ::read(inotifyFd_, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (!pendingMove_) break;
      // A move's two halves may straddle two reads: give the second a moment to arrive.
      pollfd fd{inotifyFd_, POLLIN, 0};
      if (::poll(&fd, 1, kMovePairingMs) > 0) continue;
      flushPendingMove();
      break;
    }
    for (ssize_t at = 0; at < n;) {
      const auto* event = reinterpret_cast<const struct inotify_event*>(buffer + at);
      handleEvent(*event);
      at += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
    }
  }
  std::lock_guard lock(mutex_);
  watchCount_ = watchOfPath_.size();
}

void InotifyWatcher::handleEvent(const struct inotify_event& event) {
  if (event.mask & IN_Q_OVERFLOW) {
    recrawl();
    SystemLog::log(
        "file events were lost (the inotify queue overflowed); the watched folders were "
        "scanned again (raise fs.inotify.max_queued_events to avoid this)");
    return;
  }
  auto found = pathOfWatch_.find(event.wd);
  if (found == pathOfWatch_.end()) return;
  if (event.mask & IN_IGNORED) {
    auto byPath = watchOfPath_.find(found->second);
    if (byPath != watchOfPath_.end() && byPath->second == event.wd) watchOfPath_.erase(byPath);
    pathOfWatch_.erase(found);
    return;
  }
  const std::string dir = found->second;
  const bool named = event.len > 0 && event.name[0] != 0;
  const std::string path = named ? join(dir, event.name) : dir;
  const bool isDir = event.mask & IN_ISDIR;
  const uint32_t kind = isDir ? fsevent::kItemIsDir : fsevent::kItemIsFile;

  if (pendingMove_ && !((event.mask & IN_MOVED_TO) && event.cookie == pendingMove_->cookie)) {
    flushPendingMove();
  }
  if (!named) {
    // Events on a watched item itself: only a root's own fate is news.
    if (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF)) {
      if (isRoot(path)) emit(path, fsevent::kRootChanged);
    } else if (event.mask & IN_MODIFY) {
      emit(path, fsevent::kItemModified | fsevent::kItemIsFile);
    }
    return;
  }
  if (event.mask & IN_CREATE) {
    if (reportedByScan_.erase(path) > 0) return;  // the scan of a new folder told of it
    emit(path, fsevent::kItemCreated | kind);
    if (isDir) addTree(path, true);
  }
  if (event.mask & IN_DELETE) emit(path, fsevent::kItemRemoved | kind);
  if (event.mask & IN_MODIFY) emit(path, fsevent::kItemModified | kind);
  if (event.mask & IN_MOVED_FROM) pendingMove_ = PendingMove{event.cookie, path, isDir};
  if (event.mask & IN_MOVED_TO) {
    if (pendingMove_) {
      // Both halves seen: a rename within the trees, two events with consecutive identifiers.
      emit(pendingMove_->path, fsevent::kItemRenamed | kind);
      emit(path, fsevent::kItemRenamed | kind);
      if (isDir) renameTree(pendingMove_->path, path);
      pendingMove_.reset();
    } else {
      emit(path, fsevent::kItemRenamed | kind);  // moved in from outside
      if (isDir) addTree(path, false);
    }
  }
}

void InotifyWatcher::flushPendingMove() {
  if (!pendingMove_) return;
  const PendingMove move = *pendingMove_;
  pendingMove_.reset();
  emit(move.path,
       fsevent::kItemRenamed | (move.isDir ? fsevent::kItemIsDir : fsevent::kItemIsFile));
  if (move.isDir) forgetTree(move.path, true);  // moved out: its watches must not follow it
}

void InotifyWatcher::recrawl() {
  flushPendingMove();
  // The kernel answers the existing watch for a folder watched already, so crawling again only
  // adds what is missing; the tables are rebuilt from what the crawl finds.
  pathOfWatch_.clear();
  watchOfPath_.clear();
  for (const auto& root : watchedRoots_) {
    addTree(root, false);
    emit(root, fsevent::kMustScanSubDirs);
  }
}

int InotifyWatcher::addWatch(const std::string& path, bool root) {
  uint32_t mask = kDirectoryMask;
  if (!root) mask |= IN_DONT_FOLLOW;
  const int wd = inotify_add_watch(inotifyFd_, path.c_str(), mask);
  if (wd < 0) {
    if (errno == ENOSPC && !watchLimitReached_.exchange(true)) {
      SystemLog::log(
          "cannot watch %s: the per-user inotify watch limit is reached (raise "
          "fs.inotify.max_user_watches); folders already watched are still served",
          path.c_str());
    }
    return -1;
  }
  auto previous = pathOfWatch_.find(wd);
  if (previous != pathOfWatch_.end() && previous->second != path) {
    watchOfPath_.erase(previous->second);
  }
  pathOfWatch_[wd] = path;
  watchOfPath_[path] = wd;
  return wd;
}

void InotifyWatcher::addTree(const std::string& root, bool reportContents) {
  struct stat st {};
  if (::stat(root.c_str(), &st) != 0) return;
  if (!S_ISDIR(st.st_mode)) {
    const int wd = inotify_add_watch(inotifyFd_, root.c_str(), kFileMask);
    if (wd >= 0) {
      pathOfWatch_[wd] = root;
      watchOfPath_[root] = wd;
    }
    return;
  }
  std::vector<std::string> stack{root};
  while (!stack.empty()) {
    std::string dir = std::move(stack.back());
    stack.pop_back();
    if (addWatch(dir, dir == root && !reportContents) < 0) {
      if (watchLimitReached_.load()) return;
      continue;
    }
    const int fd =
        ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (dir == root ? 0 : O_NOFOLLOW));
    if (fd < 0) continue;
    DIR* listing = ::fdopendir(fd);
    if (!listing) {
      ::close(fd);
      continue;
    }
    while (const dirent* entry = ::readdir(listing)) {
      const char* name = entry->d_name;
      if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
      bool isDir = entry->d_type == DT_DIR;
      if (entry->d_type == DT_UNKNOWN) {
        struct stat child {};
        isDir = ::fstatat(fd, name, &child, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(child.st_mode);
      }
      std::string child = join(dir, name);
      if (reportContents) {
        // Made before the folder's watch existed, or just after: the scan reports it, and the
        // kernel's own creation event for it, if one comes, is then passed over.
        emit(child, fsevent::kItemCreated | (isDir ? fsevent::kItemIsDir : fsevent::kItemIsFile));
        reportedByScan_.insert(child);
      }
      if (isDir) stack.push_back(std::move(child));
    }
    ::closedir(listing);
  }
}

void InotifyWatcher::forgetTree(const std::string& path, bool removeWatches) {
  for (auto it = watchOfPath_.lower_bound(path); it != watchOfPath_.end();) {
    if (!isUnder(it->first, path)) {
      // Keys sharing the prefix without a "/" boundary ("a-b" sorts between "a" and "a/")
      // are skipped, not the end of the range.
      if (it->first.compare(0, path.size(), path) != 0) break;
      ++it;
      continue;
    }
    if (removeWatches) inotify_rm_watch(inotifyFd_, it->second);
    pathOfWatch_.erase(it->second);
    it = watchOfPath_.erase(it);
  }
}

void InotifyWatcher::renameTree(const std::string& from, const std::string& to) {
  std::vector<std::pair<std::string, int>> moved;
  for (auto it = watchOfPath_.lower_bound(from); it != watchOfPath_.end();) {
    if (!isUnder(it->first, from)) {
      if (it->first.compare(0, from.size(), from) != 0) break;
      ++it;
      continue;
    }
    moved.emplace_back(to + it->first.substr(from.size()), it->second);
    it = watchOfPath_.erase(it);
  }
  for (auto& [path, wd] : moved) {
    pathOfWatch_[wd] = path;
    watchOfPath_[path] = wd;
  }
}

void InotifyWatcher::emit(const std::string& path, uint32_t flags) {
  std::lock_guard lock(mutex_);
  // Successive writes to one file within a batch say nothing new.
  if (!pending_.empty() && (flags & fsevent::kItemModified) && pending_.back().flags == flags &&
      pending_.back().path == path) {
    return;
  }
  if (pending_.size() >= options_.maxPending) {
    if (pending_.back().flags != fsevent::kMustScanSubDirs) {
      SystemLog::log("too many undelivered file events; dropping the newest");
      pending_.push_back(FsEvent{"/", fsevent::kMustScanSubDirs, lastId_.fetch_add(1) + 1});
    }
    return;
  }
  if (pending_.empty()) firstPending_ = Clock::now();
  pending_.push_back(FsEvent{path, flags, lastId_.fetch_add(1) + 1});
}

void InotifyWatcher::deliverDue() {
  std::optional<RunLoop> loop;
  {
    std::lock_guard lock(mutex_);
    if (pending_.empty() || !subscription_.active || deliveryPosted_) return;
    const auto due = firstPending_ + std::chrono::duration_cast<Clock::duration>(
                                         std::chrono::duration<double>(subscription_.latency));
    if (Clock::now() < due) return;
    deliveryPosted_ = true;
    loop = subscription_.loop;
  }
  reportedByScan_.clear();
  loop->post([weak = weak_from_this()] {
    if (auto self = weak.lock()) self->deliverOnLoop();
  });
}

void InotifyWatcher::deliverOnLoop() {
  std::vector<FsEvent> batch;
  EventStream::Callback callback;
  {
    std::lock_guard lock(mutex_);
    deliveryPosted_ = false;
    if (!subscription_.active) return;  // kept for the next subscriber
    const uint64_t since = subscription_.sinceWhen;
    for (auto& event : pending_) {
      if (event.id > since && (event.flags == fsevent::kMustScanSubDirs ||
                               underRoots(event.path, subscription_.roots))) {
        batch.push_back(std::move(event));
      }
    }
    pending_.clear();
    callback = subscription_.callback;
  }
  if (callback) callback(batch);
}

bool InotifyWatcher::underRoots(const std::string& path,
                                const std::vector<std::string>& roots) const {
  return std::any_of(roots.begin(), roots.end(),
                     [&](const std::string& root) { return isUnder(path, root); });
}

bool InotifyWatcher::isRoot(const std::string& path) const {
  return std::find(watchedRoots_.begin(), watchedRoots_.end(), path) != watchedRoots_.end();
}

}  // namespace vexa
