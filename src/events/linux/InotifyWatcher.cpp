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

#include "util/PathName.h"
#include "util/RunGuarded.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kDirectoryMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                    IN_MODIFY | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR |
                                    IN_EXCL_UNLINK;
constexpr uint32_t kFileMask = IN_MODIFY | IN_DELETE_SELF | IN_MOVE_SELF;

struct DirCloser {
  void operator()(DIR* dir) const { ::closedir(dir); }
};
using DirPtr = std::unique_ptr<DIR, DirCloser>;

}  // namespace

std::shared_ptr<InotifyWatcher> InotifyWatcher::create(Options options) {
  std::shared_ptr<InotifyWatcher> watcher(new InotifyWatcher(options));
  watcher->inotifyFd_.reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  watcher->wakeFd_.reset(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
  if (!watcher->inotifyFd_ || !watcher->wakeFd_) {
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
  if (wakeFd_) wake();
  if (thread_.joinable()) thread_.join();
}

void InotifyWatcher::wake() {
  const uint64_t one = 1;
  [[maybe_unused]] ssize_t n = ::write(wakeFd_.get(), &one, sizeof one);
}

uint64_t InotifyWatcher::subscribe(const std::vector<std::string>& roots, uint64_t sinceWhen,
                                   double latency, RunLoop loop, EventStream::Callback callback) {
  uint64_t token;
  {
    std::lock_guard lock(mutex_);
    token = subscription_.token + 1;
    subscription_.token = token;
    subscription_.roots.clear();
    for (const auto& r : roots) subscription_.roots.push_back(PathName::withoutTrailingSlashes(r));
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
  wake();
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
  wake();
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
    // After a turn that read events the thread pauses briefly before the next, so that a storm
    // (a tree deleted, an archive unpacked) is read in batches of hundreds, not a few events
    // per wake-up; the first event after a quiet spell is still read at once, and delivery
    // waits for the stream's latency anyway.
    while (step()) {
      if (readSome_) std::this_thread::sleep_for(kBatchPause);
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
  const auto now = Clock::now();
  auto until = [&](Clock::time_point when) {
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(when - now).count();
    const int clamped = static_cast<int>(std::clamp<long long>(ms, 0, 1 << 30));
    timeout = timeout < 0 ? clamped : std::min(timeout, clamped);
  };
  if (auto due = translator_.deadline()) until(*due);
  {
    std::lock_guard lock(mutex_);
    if (!pending_.empty() && subscription_.active && !deliveryPosted_) {
      until(firstPending_ + std::chrono::duration_cast<Clock::duration>(
                                std::chrono::duration<double>(subscription_.latency)));
    }
    if (unsubscribedAt_) until(*unsubscribedAt_ + options_.grace);
    if (requestedGeneration_ != requested) timeout = 0;
  }
  if (maxWaitMs >= 0) timeout = timeout < 0 ? maxWaitMs : std::min(timeout, maxWaitMs);
  pollfd fds[2] = {{inotifyFd_.get(), POLLIN, 0}, {wakeFd_.get(), POLLIN, 0}};
  const int ready = ::poll(fds, 2, timeout);
  if (ready > 0 && (fds[1].revents & POLLIN)) {
    uint64_t count;
    [[maybe_unused]] ssize_t n = ::read(wakeFd_.get(), &count, sizeof count);
  }
  readSome_ = ready > 0 && (fds[0].revents & POLLIN) && readEvents();
  // Everything queued has been read: a move half still held has no second half coming soon.
  if (translator_.deadline()) {
    translator_.expire(Clock::now());
    publishWatchCount();
  }
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
    for (const auto& root : translator_.roots()) {
      table_.forgetTree(root, [this](int wd) { return releaseWatch(wd); });
    }
    translator_.setRoots({});
    publishWatchCount();
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
  table_.forgetOutside(roots, [this](int wd) { return releaseWatch(wd); });
  const std::vector<std::string> previous = translator_.roots();
  translator_.setRoots(roots);
  for (const auto& root : roots) {
    if (!underRoots(root, previous)) watchTree(root, false);
  }
  appliedGeneration_ = generation;
  std::lock_guard lock(mutex_);
  settledGeneration_ = generation;
  watchCount_ = table_.size();
  settled_.notify_all();
}

bool InotifyWatcher::readEvents() {
  alignas(struct inotify_event) char buffer[64 * 1024];
  bool any = false;
  for (;;) {
    const ssize_t n = ::read(inotifyFd_.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    any = true;
    const auto now = Clock::now();
    for (const InotifyRecord& record : InotifyRecord::parse(buffer, static_cast<size_t>(n))) {
      translator_.translate(record, now);
    }
  }
  publishWatchCount();
  return any;
}

void InotifyWatcher::publishWatchCount() {
  std::lock_guard lock(mutex_);
  watchCount_ = table_.size();
}

int InotifyWatcher::addWatch(const std::string& path, uint32_t mask) {
  const int wd = inotify_add_watch(inotifyFd_.get(), path.c_str(), mask);
  if (wd < 0) {
    if (errno == ENOSPC && !watchLimitReached_.exchange(true)) {
      SystemLog::log(
          "cannot watch %s: the per-user inotify watch limit is reached (raise "
          "fs.inotify.max_user_watches); folders already watched are still served",
          path.c_str());
    }
    return -1;
  }
  table_.add(wd, path);
  return wd;
}

void InotifyWatcher::watchTree(const std::string& root, bool reportContents) {
  struct stat st {};
  if (::stat(root.c_str(), &st) != 0) return;
  if (!S_ISDIR(st.st_mode)) {
    addWatch(root, kFileMask);
    return;
  }
  std::vector<std::string> stack{root};
  while (!stack.empty()) {
    std::string dir = std::move(stack.back());
    stack.pop_back();
    // Only a root named by the subscriber may be a link to its folder.
    const bool followLinks = dir == root && !reportContents;
    if (addWatch(dir, kDirectoryMask | (followLinks ? 0 : IN_DONT_FOLLOW)) < 0) {
      if (watchLimitReached_.load()) return;
      continue;
    }
    UniqueFd fd(
        ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (dir == root ? 0 : O_NOFOLLOW)));
    if (!fd) continue;
    DirPtr listing(::fdopendir(fd.get()));
    if (!listing) continue;
    fd.release();  // the listing owns the descriptor now
    while (const dirent* entry = ::readdir(listing.get())) {
      const char* name = entry->d_name;
      if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
      bool isDir = entry->d_type == DT_DIR;
      if (entry->d_type == DT_UNKNOWN) {
        struct stat child {};
        isDir = ::fstatat(::dirfd(listing.get()), name, &child, AT_SYMLINK_NOFOLLOW) == 0 &&
                S_ISDIR(child.st_mode);
      }
      std::string child = InotifyTranslator::childPath(dir, name);
      if (reportContents) {
        // Made before the folder's watch existed, or just after: the scan reports it, and the
        // kernel's own creation event for it, if one comes, is then passed over.
        emit(child, fsevent::kItemCreated | (isDir ? fsevent::kItemIsDir : fsevent::kItemIsFile));
        translator_.reportedByScan(child);
      }
      if (isDir) stack.push_back(std::move(child));
    }
  }
}

bool InotifyWatcher::releaseWatch(int wd) {
  // Fails when the kernel dropped the watch already; its IN_IGNORED is then queued anyway.
  return inotify_rm_watch(inotifyFd_.get(), wd) == 0;
}

void InotifyWatcher::overflowed() {
  SystemLog::log(
      "file events were lost (the inotify queue overflowed); the watched folders were "
      "scanned again (raise fs.inotify.max_queued_events to avoid this)");
}

void InotifyWatcher::emit(const std::string& path, uint32_t flags) {
  std::lock_guard lock(mutex_);
  emitLocked(path, flags);
}

void InotifyWatcher::emitRename(const std::string& from, const std::string& to, uint32_t flags) {
  // Under one hold of the lock, so that no batch is taken between the two halves.
  std::lock_guard lock(mutex_);
  emitLocked(from, flags);
  emitLocked(to, flags);
}

void InotifyWatcher::emitLocked(const std::string& path, uint32_t flags) {
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
  translator_.handedOver();
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
    batch.reserve(pending_.size());
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

bool InotifyWatcher::underRoots(const std::string& path, const std::vector<std::string>& roots) {
  return std::any_of(roots.begin(), roots.end(),
                     [&](const std::string& root) { return PathName::isWithin(path, root); });
}

}  // namespace vexa
