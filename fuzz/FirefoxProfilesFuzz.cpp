// Arbitrary profiles.ini text: a chosen profile always has a path, and absolute ones are never
// taken as relative.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "monitors/BrowserPreferences.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (auto profile = vexa::BrowserPreferences::firefoxProfile(text)) {
    if (profile->path.empty()) std::abort();
  }
  return 0;
}
