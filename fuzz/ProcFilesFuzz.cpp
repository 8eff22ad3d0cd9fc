// Arbitrary bytes as the text of /proc and /sys files: every parser of the status samplers must
// answer something defined, and the figures built from it must hold together.
#include <cstdint>
#include <string_view>

#include "status/CpuUsage.h"
#include "status/MemoryFigures.h"
#include "status/ProcParsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto meminfo = vexa::parseMeminfo(text);
  if (const auto sample = vexa::MemorySample::from(meminfo, {})) {
    const double used = sample->usedFraction();
    if (used < 0 || used != used) __builtin_trap();
    (void)sample->dictionary().dump();
  }
  vexa::PagingDeltas paging;
  (void)paging.dictionary(vexa::parseVmstat(text), 4096);

  vexa::CpuUsage usage;
  const auto ticks = vexa::parseProcStat(text);
  usage.prime(ticks);
  for (const auto& core : usage.update(ticks)) {
    if (core.total == 0) __builtin_trap();
  }
  (void)vexa::CpuUsage::overall(usage.update(ticks));

  (void)vexa::parseLoadavg(text);
  uint32_t peak = 0;
  (void)vexa::swapDictionary(vexa::parseSwaps(text), false, peak).dump();
  (void)vexa::parseCpuList(text);
  (void)vexa::parseCpuinfo(text);
  (void)vexa::parseKeyValueFile(text);
  (void)vexa::parseMillidegrees(text);
  (void)vexa::parseZramMmStat(text);
  (void)vexa::findPasswdEntry(text, 1000);
  return 0;
}
