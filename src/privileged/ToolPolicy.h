#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vexa {

// What the privileged helper agrees to run. Only a fixed set of tools, found in the system's own
// program folders, and never with arguments that make them run other programs or write files
// other than their job's.
class ToolPolicy {
 public:
  enum class Tool { Find, Tar, Unzip, Chmod, Lipo, Purge };
  struct Decision {
    bool allowed = false;
    std::optional<Tool> tool;
    std::string program;  // the absolute program to run (empty for a built-in)
    std::vector<std::string> arguments;
    std::string reason;  // why not, when refused
  };

  // `launch` is the requested tool path, `cmd` its arguments joined with "&|&".
  static Decision check(const std::string& launch, const std::string& cmd);
  static std::vector<std::string> splitArguments(const std::string& cmd);
};

}  // namespace vexa
