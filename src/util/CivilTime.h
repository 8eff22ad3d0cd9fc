#pragma once

#include <cstdint>

namespace vexa {

// Proleptic Gregorian calendar arithmetic on wall-clock seconds (seconds since 1970-01-01
// 00:00:00 of some zone's wall clock). Pure; valid far beyond any year a date needs.
struct CivilTime {
  int64_t year = 1970;
  int month = 1;  // 1..12
  int day = 1;    // 1..31
  int hour = 0;
  int minute = 0;
  int second = 0;
  int weekday = 4;  // 0 = Sunday; 1970-01-01 was a Thursday

  static int64_t daysFromCivil(int64_t year, int month, int day);
  static CivilTime fromSeconds(int64_t wallSeconds);
  int64_t toSeconds() const;
  static int daysInMonth(int64_t year, int month);
};

}  // namespace vexa
