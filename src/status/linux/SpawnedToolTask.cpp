#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#include "status/ToolTask.h"
#include "util/UniqueFd.h"

extern char** environ;

namespace vexa {
namespace {

class SpawnedToolTask final : public ToolTask {
 public:
  SpawnedToolTask(pid_t pid, UniqueFd output) : pid_(pid), output_(std::move(output)) {}
  ~SpawnedToolTask() override {
    terminate();
    wait();
  }

  std::optional<std::string> read(int milliseconds) override {
    if (!output_) return std::nullopt;
    pollfd ready{output_.get(), POLLIN, 0};
    const int polled = ::poll(&ready, 1, milliseconds);
    if (polled < 0 && errno != EINTR) return std::nullopt;
    if (polled <= 0) return std::string();
    char buffer[65536];
    ssize_t got = 0;
    do {
      got = ::read(output_.get(), buffer, sizeof buffer);
    } while (got < 0 && errno == EINTR);
    if (got <= 0) {
      output_.reset();
      return std::nullopt;
    }
    return std::string(buffer, static_cast<size_t>(got));
  }

  void terminate() override {
    // Under the lock a reaped pid is never signalled: it may belong to someone else by now.
    std::lock_guard lock(mutex_);
    if (!reaped_) ::kill(pid_, SIGTERM);
  }

  int wait() override {
    std::lock_guard lock(mutex_);
    if (reaped_) return status_;
    int status = 0;
    pid_t done = 0;
    do {
      done = ::waitpid(pid_, &status, 0);
    } while (done < 0 && errno == EINTR);
    reaped_ = true;
    status_ = done == pid_ && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return status_;
  }

 private:
  const pid_t pid_;
  UniqueFd output_;
  std::mutex mutex_;
  bool reaped_ = false;
  int status_ = -1;
};

}  // namespace

std::unique_ptr<ToolTask> ToolTask::launch(const std::vector<std::string>& argv) {
  if (argv.empty()) return nullptr;
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return nullptr;
  UniqueFd readEnd(fds[0]), writeEnd(fds[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, writeEnd.get(), 1);
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  pid_t pid = -1;
  const int failed = ::posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) return nullptr;
  return std::make_unique<SpawnedToolTask>(pid, std::move(readEnd));
}

}  // namespace vexa
