#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace vexa {

// A time zone: its offset from UTC at any instant, historical rules included.
class TimeZone {
 public:
  virtual ~TimeZone() = default;

  // Seconds east of UTC in force at `utcSeconds` (seconds since the Unix epoch).
  virtual int offsetAt(int64_t utcSeconds) const = 0;

  // The instant at which this zone's wall clock reads `wallSeconds` (wall-clock seconds since
  // 1970-01-01 00:00:00). In a gap (a skipped hour) the offset before the gap applies, so 02:30
  // reads as 03:30 after a spring-forward; in an overlap the earlier instant is taken.
  int64_t instantForWallClock(int64_t wallSeconds) const;

  // The zone of TZ or /etc/localtime, read afresh when TZ changes.
  static std::shared_ptr<const TimeZone> local();
  // A zone database identifier ("Asia/Shanghai", "UTC"); null when unknown.
  static std::shared_ptr<const TimeZone> named(const std::string& identifier);
  // A fixed offset.
  static std::shared_ptr<const TimeZone> fixed(int offsetSeconds);
  // A common abbreviation ("GMT", "PST", "CST", "JST", ...) or an identifier; null when unknown.
  static std::shared_ptr<const TimeZone> byAbbreviation(const std::string& abbreviation);
};

}  // namespace vexa
