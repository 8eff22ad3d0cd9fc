// Arbitrary file starts through the executable-header reader: it must stay within the bytes it
// is given and answer at most the universal header's bounded number of types.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "monitors/ExecutableArchitectures.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto types = vexa::ExecutableArchitectures::parse(std::span(data, size));
  if (types.size() > 30) std::abort();
  return 0;
}
