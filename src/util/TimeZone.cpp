#include "util/TimeZone.h"

#include <algorithm>
#include <map>

namespace vexa {

namespace {

class FixedZone final : public TimeZone {
 public:
  explicit FixedZone(int offset) : offset_(offset) {}
  int offsetAt(int64_t) const override { return offset_; }

 private:
  int offset_;
};

}  // namespace

int64_t TimeZone::instantForWallClock(int64_t wallSeconds) const {
  // The true instant lies within a day of the wall-clock reading; the offsets a day before and
  // a day after give the candidates (zones change offset far less often than daily).
  const int64_t before = wallSeconds - offsetAt(wallSeconds - 86400);
  const int64_t after = wallSeconds - offsetAt(wallSeconds + 86400);
  const bool beforeValid = wallSeconds - before == offsetAt(before);
  const bool afterValid = wallSeconds - after == offsetAt(after);
  if (beforeValid && afterValid) return std::min(before, after);  // overlap: the earlier one
  if (afterValid) return after;
  return before;  // valid, or in a gap: read with the offset in force before the gap
}

std::shared_ptr<const TimeZone> TimeZone::fixed(int offsetSeconds) {
  return std::make_shared<FixedZone>(offsetSeconds);
}

std::shared_ptr<const TimeZone> TimeZone::byAbbreviation(const std::string& abbreviation) {
  // The abbreviations desktop systems commonly resolve, each to its usual zone.
  static const std::map<std::string, std::string> kZones = {
      {"ADT", "America/Halifax"},
      {"AKDT", "America/Juneau"},
      {"AKST", "America/Juneau"},
      {"ART", "America/Argentina/Buenos_Aires"},
      {"AST", "America/Halifax"},
      {"BDT", "Asia/Dhaka"},
      {"BRST", "America/Sao_Paulo"},
      {"BRT", "America/Sao_Paulo"},
      {"BST", "Europe/London"},
      {"CAT", "Africa/Harare"},
      {"CDT", "America/Chicago"},
      {"CEST", "Europe/Paris"},
      {"CET", "Europe/Paris"},
      {"CLST", "America/Santiago"},
      {"CLT", "America/Santiago"},
      {"COT", "America/Bogota"},
      {"CST", "America/Chicago"},
      {"EAT", "Africa/Addis_Ababa"},
      {"EDT", "America/New_York"},
      {"EEST", "Europe/Athens"},
      {"EET", "Europe/Athens"},
      {"EST", "America/New_York"},
      {"GMT", "GMT"},
      {"GST", "Asia/Dubai"},
      {"HKT", "Asia/Hong_Kong"},
      {"HST", "Pacific/Honolulu"},
      {"ICT", "Asia/Bangkok"},
      {"IRST", "Asia/Tehran"},
      {"IST", "Asia/Kolkata"},
      {"JST", "Asia/Tokyo"},
      {"KST", "Asia/Seoul"},
      {"MDT", "America/Denver"},
      {"MSD", "Europe/Moscow"},
      {"MSK", "Europe/Moscow"},
      {"MST", "America/Denver"},
      {"NZDT", "Pacific/Auckland"},
      {"NZST", "Pacific/Auckland"},
      {"PDT", "America/Los_Angeles"},
      {"PET", "America/Lima"},
      {"PHT", "Asia/Manila"},
      {"PKT", "Asia/Karachi"},
      {"PST", "America/Los_Angeles"},
      {"SGT", "Asia/Singapore"},
      {"TRT", "Europe/Istanbul"},
      {"UTC", "UTC"},
      {"WAT", "Africa/Lagos"},
      {"WEST", "Europe/Lisbon"},
      {"WET", "Europe/Lisbon"},
      {"WIT", "Asia/Jakarta"}};
  auto it = kZones.find(abbreviation);
  return named(it == kZones.end() ? abbreviation : it->second);
}

}  // namespace vexa
