#include "util/MountWatch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <thread>

#include "util/UniqueFd.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

class PollMountWatch : public MountWatch {
 public:
  PollMountWatch(UniqueFd table, UniqueFd wake, std::function<void()> changed)
      : table_(std::move(table)), wake_(std::move(wake)), changed_(std::move(changed)) {}

  ~PollMountWatch() override {
    const uint64_t one = 1;
    // The eventfd counter cannot overflow from one write; the thread sees it at once.
    [[maybe_unused]] const ssize_t wrote = ::write(wake_.get(), &one, sizeof one);
    if (thread_.joinable()) thread_.join();
  }

  void run() {
    while (step(-1)) {
    }
  }

  // Waits up to `timeoutMs` (-1: no limit) for a change or the stop signal; false once stopped.
  bool step(int timeoutMs) {
    pollfd fds[2] = {{table_.get(), POLLPRI, 0}, {wake_.get(), POLLIN, 0}};
    const int ready = ::poll(fds, 2, timeoutMs);
    if (ready < 0) return errno == EINTR;
    if (fds[1].revents != 0) return false;
    if ((fds[0].revents & (POLLPRI | POLLERR)) != 0) {
      // Noticing the mark is what clears it; rewinding keeps the descriptor usable for reads.
      ::lseek(table_.get(), 0, SEEK_SET);
      changed_();
    } else if ((fds[0].revents & (POLLHUP | POLLNVAL)) != 0) {
      return false;
    }
    return true;
  }

  std::thread thread_;

 private:
  UniqueFd table_;
  UniqueFd wake_;
  std::function<void()> changed_;
};

}  // namespace

std::unique_ptr<MountWatch> MountWatch::start(const std::string& tablePath,
                                              std::function<void()> changed) {
  UniqueFd table(::open(tablePath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat st {};
  if (!table || ::fstat(table.get(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
  UniqueFd wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake) return nullptr;
  auto watch =
      std::make_unique<PollMountWatch>(std::move(table), std::move(wake), std::move(changed));
  try {
    watch->thread_ = std::thread([raw = watch.get()] { raw->run(); });
  } catch (const std::system_error& error) {
    SystemLog::log("cannot watch the mount table %s: %s", tablePath.c_str(), error.what());
    return nullptr;
  }
  return watch;
}

}  // namespace vexa
