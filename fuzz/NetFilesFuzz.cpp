// Arbitrary bytes as /proc/net/dev, /proc/net/route, resolv.conf and a mount table: the parsers
// answer something defined, a traffic total never goes back between two readings of the same
// link, and the volumes listed are a subset of the mounts parsed.
#include <cstdint>
#include <string_view>

#include "status/DiskVolumes.h"
#include "status/ProcParsers.h"
#include "status/TrafficBook.h"
#include "util/MountTable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto counters = vexa::parseNetDev(text);
  std::vector<vexa::InterfaceCounters> first;
  std::vector<vexa::InterfaceCounters> second;
  for (const auto& c : counters) {
    first.push_back({c.name, c.receivedBytes, c.sentBytes, 1, true});
    // The same links later, each counter a little further or wrapped at 64 bits.
    second.push_back({c.name, c.receivedBytes + 396, c.sentBytes * 3, 1, true});
  }
  vexa::TrafficBook book;
  const auto before = book.book(first, 1.0);
  const auto after = book.book(second, 0.5);
  for (const auto& [name, record] : after.items()) {
    if (!record.contains("downlink_speed")) continue;
    if (record["total_in"].get<uint64_t>() < before[name]["total_in"].get<uint64_t>()) {
      __builtin_trap();
    }
  }
  (void)after.dump();
  (void)vexa::parseDefaultRoutes(text);
  (void)vexa::parseResolvConf(text);
  const auto table = vexa::MountTable::parse(text);
  if (vexa::DiskVolumes::listed(table).size() > table.size()) __builtin_trap();
  (void)vexa::DiskVolumes::udevLabel(text);
  return 0;
}
