// Arbitrary user-dirs.dirs text: every folder parsed must be absolute.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "util/XdgDirs.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const auto& [kind, path] : vexa::XdgDirs::parseUserDirs(text, "/home/u")) {
    if (path.empty() || path[0] != '/') std::abort();
  }
  return 0;
}
