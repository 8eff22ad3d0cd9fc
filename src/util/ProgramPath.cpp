#include "util/ProgramPath.h"

#include <unistd.h>

#include <cstdlib>

namespace vexa {

std::optional<std::string> ProgramPath::find(const std::string& name) {
  if (name.empty()) return std::nullopt;
  if (name.find('/') != std::string::npos) {
    if (name.front() == '/' && ::access(name.c_str(), X_OK) == 0) return name;
    return std::nullopt;
  }
  const char* env = std::getenv("PATH");
  const std::string path = env ? env : "/usr/local/bin:/usr/bin:/bin";
  size_t start = 0;
  while (start <= path.size()) {
    size_t colon = path.find(':', start);
    if (colon == std::string::npos) colon = path.size();
    const std::string dir = path.substr(start, colon - start);
    start = colon + 1;
    if (dir.empty() || dir.front() != '/') continue;
    std::string candidate = dir;
    candidate += '/';
    candidate += name;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::nullopt;
}

}  // namespace vexa
