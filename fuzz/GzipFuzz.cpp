// Arbitrary bytes through the inflaters and the COBS decoder: no crash, no unbounded
// allocation, and whatever decodes must survive a round trip.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "vexa/util/MonitorData.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using vexa::MonitorData;
  const std::span<const uint8_t> input(data, size);
  constexpr size_t kLimit = 1 << 20;
  if (auto plain = MonitorData::ungzipData(input, kLimit)) {
    if (plain->size() > kLimit) std::abort();
    auto again = MonitorData::gzipData(*plain);
    if (!again || (!plain->empty() && MonitorData::ungzipData(*again, kLimit) != *plain)) {
      std::abort();
    }
  }
  MonitorData::zlibInflate(input, kLimit);
  const vexa::Bytes decoded = MonitorData::decodeCOBS(input);
  if (MonitorData::decodeCOBS(MonitorData::encodeCOBS(decoded)) != decoded) std::abort();
  return 0;
}
