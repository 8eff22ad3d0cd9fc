// Arbitrary bytes as a mount table: every entry parsed must come from the bytes given, and an
// unescaped field is never longer than the text it came from.
#include <cstdint>
#include <string_view>

#include "util/MountTable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const auto& entry : vexa::MountTable::parse(text)) {
    if (entry.mountPoint.size() + entry.fsType.size() + entry.source.size() + entry.root.size() >
        size) {
      __builtin_trap();
    }
  }
  if (vexa::MountTable::unescape(text).size() > size) __builtin_trap();
  return 0;
}
