#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "status/MountTableWatch.h"
#include "util/UniqueFd.h"

namespace vexa {
namespace {

// The kernel marks an open mount table with POLLPRI (and POLLERR) once after each change of
// the namespace's mounts; poll itself takes the mark, so nothing needs re-reading to clear it.
// A table that is a plain file (a captured machine) never changes: its waits run out.
class ProcMountTableWatch final : public MountTableWatch {
 public:
  explicit ProcMountTableWatch(const std::string& path)
      : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}

  bool waitForChange(std::chrono::milliseconds timeout) override {
    if (!fd_) {
      std::this_thread::sleep_for(timeout);
      return false;
    }
    pollfd watched{fd_.get(), POLLPRI, 0};
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      const int ready = ::poll(&watched, 1, static_cast<int>(std::max<int64_t>(left.count(), 0)));
      if (ready > 0) return (watched.revents & (POLLPRI | POLLERR)) != 0;
      if (ready == 0 || errno != EINTR) return false;
    }
  }

 private:
  UniqueFd fd_;
};

}  // namespace

std::unique_ptr<MountTableWatch> MountTableWatch::open(const std::string& root) {
  const std::string base = root == "/" ? std::string() : root;
  return std::make_unique<ProcMountTableWatch>(base + "/proc/self/mountinfo");
}

}  // namespace vexa
