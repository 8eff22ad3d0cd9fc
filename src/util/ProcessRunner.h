#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vexa {

// Runs programs directly (never through a shell) and waits for them. The one place the library
// starts a child process, apart from the shell functions whose contract is a shell.
class ProcessRunner {
 public:
  struct Result {
    bool started = false;
    int status = -1;  // exit status; -1 when killed or not started
    std::string output;
  };
  // Runs argv[0] (a path; no PATH search) with standard input on /dev/null, standard error
  // discarded and standard output collected; with `filter`, the output goes through that
  // program (e.g. grep) instead and the filter's output and status are answered.
  // `workingDirectory` is used when not empty.
  static Result run(const std::vector<std::string>& argv,
                    const std::optional<std::vector<std::string>>& filter = std::nullopt,
                    const std::string& workingDirectory = "");

  // Runs argv[0] with standard input and output on /dev/null (standard error inherited) and
  // waits for it alone: whatever it starts and leaves running holds no pipe of ours. The exit
  // status, or -1 when it could not be started or was killed.
  static int runDetached(const std::vector<std::string>& argv);

  // Starts argv[0] as runDetached does, without waiting: its process id, or -1.
  static int start(const std::vector<std::string>& argv);
  // Whether a started child has ended (it is then reaped); never blocks.
  static bool hasExited(int pid);
  // Sends SIGTERM to a started child.
  static void terminate(int pid);
  // Waits for a started child: its exit status, or -1 when killed.
  static int wait(int pid);
};

}  // namespace vexa
