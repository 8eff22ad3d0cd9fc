// A date text and a pattern (split at the first NUL byte) through the parser; what parses must
// format without trouble.
#include <cstdint>
#include <string_view>

#include "util/DateFormat.h"
#include "util/TimeZone.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view all(reinterpret_cast<const char*>(data), size);
  const size_t split = all.find('\0');
  const std::string_view text = all.substr(0, split);
  const std::string_view pattern =
      split == std::string_view::npos ? "yyyy-MM-dd HH:mm:ss Z" : all.substr(split + 1);
  static const auto zone = vexa::TimeZone::fixed(3600);
  if (auto seconds = vexa::DateFormat::parse(text, pattern, *zone)) {
    vexa::DateFormat::format(*seconds, pattern, *zone);
  }
  return 0;
}
