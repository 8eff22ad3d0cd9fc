#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vexa {

// A child program whose standard output the parent reads as it comes.
class ToolTask {
 public:
  virtual ~ToolTask() = default;
  // Waits up to `milliseconds` for output: what arrived (empty when nothing did in time), or
  // nothing once the child has closed its output. One reader at a time.
  virtual std::optional<std::string> read(int milliseconds) = 0;
  // Asks the child to end (SIGTERM); harmless once it has been reaped. Safe from any thread.
  virtual void terminate() = 0;
  // Waits for the child to end and reaps it: its exit status, -1 when killed by a signal.
  virtual int wait() = 0;

  // Starts argv[0] (a path) with standard input on /dev/null and standard error inherited;
  // null when it cannot be started.
  static std::unique_ptr<ToolTask> launch(const std::vector<std::string>& argv);
};

}  // namespace vexa
