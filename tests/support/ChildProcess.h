#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

extern char** environ;

namespace vexa::test {

// A program run with pipes on its standard input and output.
class ChildProcess {
 public:
  explicit ChildProcess(std::vector<std::string> argv) {
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    std::vector<char*> args;
    for (auto& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    if (posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    stdin_ = in[1];
    stdout_ = out[0];
  }
  ~ChildProcess() {
    if (pid_ > 0 && !exited_) {
      ::kill(pid_, SIGKILL);
      waitExit(std::chrono::seconds(5));
    }
    if (stdin_ >= 0) ::close(stdin_);
    if (stdout_ >= 0) ::close(stdout_);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool running() const { return pid_ > 0 && !exited_; }
  int pid() const { return pid_; }
  // Never kill(-1, ...): a child that could not be spawned has no process to signal.
  void signal(int sig) {
    if (pid_ > 0) ::kill(pid_, sig);
  }
  void write(const std::string& text) {
    [[maybe_unused]] ssize_t n = ::write(stdin_, text.data(), text.size());
  }
  void closeInput() {
    ::close(stdin_);
    stdin_ = -1;
  }
  // The next line of output (without its newline); empty at a time-out or the end.
  std::optional<std::string> readLine(
      std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
      const size_t newline = buffer_.find('\n');
      if (newline != std::string::npos) {
        std::string line = buffer_.substr(0, newline);
        buffer_.erase(0, newline + 1);
        return line;
      }
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return std::nullopt;
      pollfd p{stdout_, POLLIN, 0};
      if (::poll(&p, 1, static_cast<int>(left.count())) != 1) return std::nullopt;
      char chunk[4096];
      const ssize_t n = ::read(stdout_, chunk, sizeof chunk);
      if (n <= 0) return std::nullopt;
      buffer_.append(chunk, static_cast<size_t>(n));
    }
  }
  // The exit status (or -1 at a time-out, or 128 + signal).
  int waitExit(std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    if (pid_ <= 0) return -1;  // waitpid(-1) would reap some other child
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
      int status = 0;
      const pid_t done = ::waitpid(pid_, &status, WNOHANG);
      if (done == pid_) {
        exited_ = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      }
      if (std::chrono::steady_clock::now() > deadline) return -1;
      pollfd none{-1, 0, 0};
      ::poll(&none, 0, 10);  // a child's end cannot be waited on with a deadline otherwise
    }
  }

 private:
  pid_t pid_ = -1;
  bool exited_ = false;
  int stdin_ = -1;
  int stdout_ = -1;
  std::string buffer_;
};

}  // namespace vexa::test
