#include "events/linux/InotifyKernel.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "events/linux/InotifyWatchQueue.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

std::unique_ptr<WatchQueueEngine> makePlatformWatchQueueEngine() {
  auto kernel = InotifyKernel::create();
  if (!kernel) return nullptr;
  return std::make_unique<InotifyWatchQueue>(std::move(kernel), true);
}

std::unique_ptr<InotifyKernel> InotifyKernel::create() {
  UniqueFd inotify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!inotify) {
    SystemLog::log("cannot create a watch queue: %s (raise fs.inotify.max_user_instances)",
                   std::strerror(errno));
    return nullptr;
  }
  UniqueFd wake(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
  if (!wake) {
    SystemLog::log("cannot create a watch queue: %s", std::strerror(errno));
    return nullptr;
  }
  return std::unique_ptr<InotifyKernel>(new InotifyKernel(std::move(inotify), std::move(wake)));
}

InotifyKernel::InotifyKernel(UniqueFd inotify, UniqueFd wake)
    : inotify_(std::move(inotify)), wake_(std::move(wake)) {}

InotifyKernel::~InotifyKernel() {
  if (::close(inotify_.release()) != 0) {
    SystemLog::log("WatchQueue watcherThread: Couldn't close main kqueue (%d)", errno);
  }
}

int InotifyKernel::addWatch(const std::string& path, uint32_t mask) {
  const int wd = inotify_add_watch(inotify_.get(), path.c_str(), mask);
  return wd >= 0 ? wd : -errno;
}

bool InotifyKernel::removeWatch(int wd) {
  // Fails when the kernel dropped the watch already; its IN_IGNORED is queued anyway.
  return inotify_rm_watch(inotify_.get(), wd) == 0;
}

std::vector<InotifyRecord> InotifyKernel::wait(int timeoutMs) {
  std::vector<InotifyRecord> records;
  pollfd fds[2] = {{inotify_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
  if (::poll(fds, 2, timeoutMs) <= 0) return records;
  if (fds[1].revents & POLLIN) {
    uint64_t count;
    [[maybe_unused]] ssize_t n = ::read(wake_.get(), &count, sizeof count);
  }
  alignas(struct inotify_event) char buffer[64 * 1024];
  for (;;) {
    const ssize_t n = ::read(inotify_.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    auto parsed = InotifyRecord::parse(buffer, static_cast<size_t>(n));
    records.insert(records.end(), std::make_move_iterator(parsed.begin()),
                   std::make_move_iterator(parsed.end()));
  }
  return records;
}

void InotifyKernel::wake() {
  const uint64_t one = 1;
  [[maybe_unused]] ssize_t n = ::write(wake_.get(), &one, sizeof one);
}

std::optional<WatchedItemStatus> InotifyKernel::status(const std::string& path, bool followLink) {
  struct stat st {};
  if ((followLink ? ::stat(path.c_str(), &st) : ::lstat(path.c_str(), &st)) != 0) {
    return std::nullopt;
  }
  return WatchedItemStatus{static_cast<uint64_t>(st.st_dev),
                           static_cast<uint64_t>(st.st_ino),
                           static_cast<uint64_t>(st.st_size),
                           static_cast<uint64_t>(st.st_nlink),
                           S_ISDIR(st.st_mode),
                           S_ISLNK(st.st_mode),
                           (st.st_mode & S_ISVTX) != 0};
}

std::vector<std::string> InotifyKernel::list(const std::string& folder) {
  std::vector<std::string> names;
  UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) return names;
  std::unique_ptr<DIR, int (*)(DIR*)> dir(::fdopendir(fd.get()), ::closedir);
  if (!dir) return names;
  fd.release();  // the listing owns the descriptor now
  while (const dirent* entry = ::readdir(dir.get())) {
    const char* name = entry->d_name;
    if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
    names.emplace_back(name);
  }
  return names;
}

uint32_t InotifyKernel::userId() { return static_cast<uint32_t>(::getuid()); }

}  // namespace vexa
