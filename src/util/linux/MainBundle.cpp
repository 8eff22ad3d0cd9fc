#include "util/MainBundle.h"

#include <climits>
#include <cstdlib>

#include "util/PathName.h"

namespace vexa {

std::string MainBundle::path() {
  if (const char* image = std::getenv("APPIMAGE"); image && image[0] == '/') {
    if (PathName::isRegularFile(image)) return image;
  }
  return executable();
}

std::string MainBundle::executable() {
  char resolved[PATH_MAX];
  if (::realpath("/proc/self/exe", resolved)) return resolved;
  return {};
}

}  // namespace vexa
