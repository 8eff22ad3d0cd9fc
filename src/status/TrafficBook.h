#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace vexa {

// One interface's byte counters at one sample.
struct InterfaceCounters {
  std::string name;
  uint64_t receivedBytes = 0;  // the kernel's 64-bit counters
  uint64_t sentBytes = 0;
  int64_t index = 0;  // the kernel's interface index; 0 when unknown
  bool up = true;     // false books a first record, as for a link that is down
};

// Turns successive counter readings into traffic records, one per interface name:
//
//   "if_in"/"if_out" (the low 32 bits of the counters), "total_in"/"total_out" (running totals
//   that carry across a 32-bit wrap), "downlink_speed"/"uplink_speed" (bytes since the previous
//   reading) and "peak_speek" (the highest rate in bytes per second so far).
//
// The first reading of an interface, or one after a reset, gives a first record: the counters,
// totals equal to them, a peak of 0 and no speeds. A reset is a 64-bit counter that went back
// or an interface index that changed (the link was deleted and made again): the 32-bit wrap
// rule alone would book such a drop as about 4 GiB of traffic.
class TrafficBook {
 public:
  // Books one reading of every interface taken `interval` seconds after the last one and
  // answers the records, keyed by name; interfaces not in the reading are forgotten.
  nlohmann::json book(const std::vector<InterfaceCounters>& reading, double interval);
  const nlohmann::json& last() const { return last_; }

  // The record following `previous` for raw 32-bit counters `in`/`out`.
  static nlohmann::json next(const nlohmann::json& previous, uint32_t in, uint32_t out,
                             double interval);
  static nlohmann::json first(uint32_t in, uint32_t out);

 private:
  struct Seen {
    uint64_t received = 0;
    uint64_t sent = 0;
    int64_t index = 0;
  };
  nlohmann::json last_ = nlohmann::json::object();
  std::map<std::string, Seen> seen_;
};

}  // namespace vexa
