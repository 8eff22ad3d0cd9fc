#pragma once

#include <optional>
#include <string>

namespace vexa {

// Where a program is, as the shell would find it.
class ProgramPath {
 public:
  // A name with a slash when it is an executable absolute path; a bare name in the first
  // absolute folder of PATH (default /usr/local/bin:/usr/bin:/bin) that has it executable.
  // Relative PATH entries are skipped: what runs must not depend on the current folder.
  static std::optional<std::string> find(const std::string& name);
};

}  // namespace vexa
