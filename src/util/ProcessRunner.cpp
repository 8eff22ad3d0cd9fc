#include "util/ProcessRunner.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "util/UniqueFd.h"

extern char** environ;

namespace vexa {

namespace {

constexpr int kNullDevice = -1;  // "connect this stream to /dev/null"
constexpr int kInherit = -2;     // "leave this stream as the parent's"

// Starts argv with `in`/`out` as its standard input and output; standard error goes to
// /dev/null unless `err` is kInherit. Every other descriptor of ours is O_CLOEXEC.
pid_t spawn(const std::vector<std::string>& argv, int in, int out, int err,
            const std::string& cwd) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  auto connect = [&](int fd, int target, int flags) {
    if (fd == kNullDevice) {
      posix_spawn_file_actions_addopen(&actions, target, "/dev/null", flags, 0);
    } else if (fd >= 0) {
      posix_spawn_file_actions_adddup2(&actions, fd, target);
    }
  };
  connect(in, 0, O_RDONLY);
  connect(out, 1, O_WRONLY);
  connect(err, 2, O_WRONLY);
  if (!cwd.empty()) posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = -1;
  if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

int waitFor(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string drain(int fd) {
  std::string text;
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    text.append(buffer, static_cast<size_t>(n));
  }
  return text;
}

struct Pipe {
  UniqueFd read;
  UniqueFd write;
  static bool open(Pipe& p) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    p.read.reset(fds[0]);
    p.write.reset(fds[1]);
    return true;
  }
};

}  // namespace

ProcessRunner::Result ProcessRunner::run(const std::vector<std::string>& argv,
                                         const std::optional<std::vector<std::string>>& filter,
                                         const std::string& workingDirectory) {
  Result result;
  if (argv.empty()) return result;
  Pipe toolOut;
  if (!Pipe::open(toolOut)) return result;
  const pid_t tool = spawn(argv, kNullDevice, toolOut.write.get(), kNullDevice, workingDirectory);
  toolOut.write.reset();
  if (tool < 0) return result;
  result.started = true;
  if (filter && !filter->empty()) {
    Pipe filterOut;
    if (!Pipe::open(filterOut)) {
      toolOut.read.reset();
      waitFor(tool);
      return result;
    }
    const pid_t grep =
        spawn(*filter, toolOut.read.get(), filterOut.write.get(), kNullDevice, workingDirectory);
    toolOut.read.reset();
    filterOut.write.reset();
    result.output = grep >= 0 ? drain(filterOut.read.get()) : "";
    filterOut.read.reset();
    waitFor(tool);
    result.status = grep >= 0 ? waitFor(grep) : -1;
    return result;
  }
  result.output = drain(toolOut.read.get());
  toolOut.read.reset();
  result.status = waitFor(tool);
  return result;
}

int ProcessRunner::runDetached(const std::vector<std::string>& argv) {
  if (argv.empty()) return -1;
  const pid_t child = spawn(argv, kNullDevice, kNullDevice, kInherit, "");
  return child < 0 ? -1 : waitFor(child);
}

int ProcessRunner::start(const std::vector<std::string>& argv) {
  if (argv.empty()) return -1;
  return spawn(argv, kNullDevice, kNullDevice, kInherit, "");
}

bool ProcessRunner::hasExited(int pid) {
  int status = 0;
  pid_t done = 0;
  do {
    done = waitpid(pid, &status, WNOHANG);
  } while (done < 0 && errno == EINTR);
  return done != 0;
}

void ProcessRunner::terminate(int pid) {
  if (pid > 0) ::kill(pid, SIGTERM);
}

int ProcessRunner::wait(int pid) { return waitFor(pid); }

}  // namespace vexa
