#include "status/TrafficBook.h"

#include <algorithm>

#include "util/Utf8.h"

namespace vexa {

namespace {

constexpr uint64_t kWrap = uint64_t{1} << 32U;

uint64_t unsignedOr(const nlohmann::json& record, const char* key) {
  const auto found = record.find(key);
  return found != record.end() && found->is_number_unsigned() ? found->get<uint64_t>() : 0;
}

// The running total after the counter went from `previous` to `now`: forward, or once around
// the 32-bit range when it went back.
uint64_t advanced(uint64_t total, uint64_t previous, uint64_t now) {
  return now >= previous ? total + (now - previous) : total + kWrap - previous + now;
}

}  // namespace

nlohmann::json TrafficBook::first(uint32_t in, uint32_t out) {
  return {{"if_in", in},
          {"if_out", out},
          {"total_in", uint64_t{in}},
          {"total_out", uint64_t{out}},
          {"peak_speek", 0.0}};
}

nlohmann::json TrafficBook::next(const nlohmann::json& previous, uint32_t in, uint32_t out,
                                 double interval) {
  const uint64_t totalIn = unsignedOr(previous, "total_in");
  const uint64_t totalOut = unsignedOr(previous, "total_out");
  const uint64_t newIn = advanced(totalIn, unsignedOr(previous, "if_in"), in);
  const uint64_t newOut = advanced(totalOut, unsignedOr(previous, "if_out"), out);
  const uint64_t deltaIn = newIn > totalIn ? newIn - totalIn : 0;
  const uint64_t deltaOut = newOut > totalOut ? newOut - totalOut : 0;
  const auto peakEntry = previous.find("peak_speek");
  double peak =
      peakEntry != previous.end() && peakEntry->is_number() ? peakEntry->get<double>() : 0.0;
  if (interval > 0.0) {
    peak = std::max(
        {peak, static_cast<double>(deltaIn) / interval, static_cast<double>(deltaOut) / interval});
  }
  return {{"if_in", in},
          {"if_out", out},
          {"total_in", newIn},
          {"total_out", newOut},
          {"downlink_speed", deltaIn},
          {"uplink_speed", deltaOut},
          {"peak_speek", peak}};
}

nlohmann::json TrafficBook::book(const std::vector<InterfaceCounters>& reading, double interval) {
  nlohmann::json records = nlohmann::json::object();
  std::map<std::string, Seen> seen;
  for (const auto& counters : reading) {
    // A link named with bytes that are not UTF-8 cannot be a key of the dictionary.
    if (!Utf8::isText(counters.name)) continue;
    const auto in = static_cast<uint32_t>(counters.receivedBytes);
    const auto out = static_cast<uint32_t>(counters.sentBytes);
    const auto before = seen_.find(counters.name);
    const bool reset = before == seen_.end() || !last_.contains(counters.name) ||
                       counters.receivedBytes < before->second.received ||
                       counters.sentBytes < before->second.sent ||
                       counters.index != before->second.index;
    records[counters.name] =
        reset || !counters.up ? first(in, out) : next(last_[counters.name], in, out, interval);
    seen[counters.name] = Seen{counters.receivedBytes, counters.sentBytes, counters.index};
  }
  last_ = records;
  seen_ = std::move(seen);
  return records;
}

}  // namespace vexa
