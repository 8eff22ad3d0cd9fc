#include "privileged/ProcessRunner.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace vexa {

namespace {

pid_t spawn(const std::vector<std::string>& argv, int in, int out, const std::string& cwd) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (in >= 0) {
    posix_spawn_file_actions_adddup2(&actions, in, 0);
  } else {
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  }
  posix_spawn_file_actions_adddup2(&actions, out, 1);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  if (!cwd.empty()) posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
  std::vector<char*> args;
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

}  // namespace

ProcessRunner::Result ProcessRunner::run(const std::vector<std::string>& argv,
                                         const std::optional<std::vector<std::string>>& filter,
                                         const std::string& workingDirectory) {
  Result result;
  if (argv.empty()) return result;
  int toolOut[2];
  if (pipe2(toolOut, O_CLOEXEC) != 0) return result;
  const pid_t tool = spawn(argv, -1, toolOut[1], workingDirectory);
  ::close(toolOut[1]);
  if (tool < 0) {
    ::close(toolOut[0]);
    return result;
  }
  result.started = true;
  if (filter && !filter->empty()) {
    int filterOut[2];
    if (pipe2(filterOut, O_CLOEXEC) != 0) {
      ::close(toolOut[0]);
      waitFor(tool);
      return result;
    }
    const pid_t grep = spawn(*filter, toolOut[0], filterOut[1], workingDirectory);
    ::close(toolOut[0]);
    ::close(filterOut[1]);
    result.output = grep >= 0 ? drain(filterOut[0]) : "";
    ::close(filterOut[0]);
    waitFor(tool);
    result.status = grep >= 0 ? waitFor(grep) : -1;
    return result;
  }
  result.output = drain(toolOut[0]);
  ::close(toolOut[0]);
  result.status = waitFor(tool);
  return result;
}

}  // namespace vexa
