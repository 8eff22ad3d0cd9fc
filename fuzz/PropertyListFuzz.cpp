// Arbitrary bytes as a property list (an Info.plist of an unknown bundle, a cache file):
// whatever parses must write back as a binary list that parses again to the same value.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "util/PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto value = vexa::PropertyList::parse(std::span(data, size));
  if (!value) return 0;
  auto binary = vexa::PropertyList::toBinary(*value);
  if (!binary) return 0;  // a null root or nesting past the limit
  auto again = vexa::PropertyList::parse(*binary);
  // Reals may be NaN, which never equals itself: compare the texts of the dumps instead (keys
  // are bytes, so odd ones are shown replaced).
  auto text = [](const nlohmann::json& v) {
    return v.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  };
  if (!again || text(*again) != text(*value)) std::abort();
  return 0;
}
