// Arbitrary desktop entry files: whatever parses answers its values and Exec arguments.
#include <cstdint>
#include <string_view>

#include "util/DesktopEntry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto entry =
      vexa::DesktopEntry::parse(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!entry) return 0;
  entry->localized("Name", {"de_DE.UTF-8", "pt"});
  entry->executable();
  entry->execArguments();
  entry->isApplication();
  return 0;
}
