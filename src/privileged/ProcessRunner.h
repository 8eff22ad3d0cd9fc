#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vexa {

// Runs programs directly (never through a shell), waiting for them.
class ProcessRunner {
 public:
  struct Result {
    bool started = false;
    int status = -1;  // exit status; -1 when killed or not started
    std::string output;
  };
  // Runs argv[0] with standard input on /dev/null, standard error discarded and standard output
  // collected; with `filter`, the output goes through that program (e.g. grep) instead and the
  // filter's output and status are answered. `workingDirectory` is used when not empty.
  static Result run(const std::vector<std::string>& argv,
                    const std::optional<std::vector<std::string>>& filter = std::nullopt,
                    const std::string& workingDirectory = "");
};

}  // namespace vexa
