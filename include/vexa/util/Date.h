#pragma once

#include <compare>

#include "vexa/Export.h"

namespace vexa {

// An instant: seconds since 1970-01-01 00:00:00 UTC, with sub-second precision.
class VEXA_EXPORT Date {
 public:
  constexpr Date() = default;
  constexpr explicit Date(double secondsSince1970) : seconds_(secondsSince1970) {}
  static Date now();

  constexpr double timeIntervalSince1970() const { return seconds_; }
  constexpr double timeIntervalSinceDate(Date other) const { return seconds_ - other.seconds_; }
  constexpr Date addingTimeInterval(double seconds) const { return Date(seconds_ + seconds); }

  // NOLINTNEXTLINE(modernize-use-nullptr): the defaulted comparison has no pointer to replace
  constexpr auto operator<=>(const Date&) const = default;

 private:
  double seconds_ = 0;
};

}  // namespace vexa
