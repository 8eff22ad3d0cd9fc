#include "util/MainBundle.h"

#include <climits>
#include <cstdlib>

#include "util/PathName.h"

namespace vexa {

std::string MainBundle::path() {
  // Login items and their entries are compared as real paths: an image started through a link or
  // a path with "..", as its runtime may pass it, is named the way the entries are read back.
  if (const char* image = std::getenv("APPIMAGE"); image && image[0] == '/') {
    char resolved[PATH_MAX];
    if (PathName::isRegularFile(image) && ::realpath(image, resolved)) return resolved;
  }
  return executable();
}

std::string MainBundle::executable() {
  char resolved[PATH_MAX];
  if (::realpath("/proc/self/exe", resolved)) return resolved;
  return {};
}

}  // namespace vexa
