#include "util/CivilTime.h"

namespace vexa {

namespace {

int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

}  // namespace

// Days since 1970-01-01 of a civil date (H. Hinnant's algorithm).
int64_t CivilTime::daysFromCivil(int64_t year, int month, int day) {
  year -= month <= 2;
  const int64_t era = floorDiv(year, 400);
  const int64_t yoe = year - era * 400;
  const int64_t doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

CivilTime CivilTime::fromSeconds(int64_t wallSeconds) {
  const int64_t days = floorDiv(wallSeconds, 86400);
  const int64_t rest = wallSeconds - days * 86400;
  const int64_t z = days + 719468;
  const int64_t era = floorDiv(z, 146097);
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  CivilTime c;
  c.day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  c.month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  c.year = yoe + era * 400 + (c.month <= 2);
  c.hour = static_cast<int>(rest / 3600);
  c.minute = static_cast<int>(rest / 60 % 60);
  c.second = static_cast<int>(rest % 60);
  c.weekday = static_cast<int>(days + 4 - floorDiv(days + 4, 7) * 7);
  return c;
}

int64_t CivilTime::toSeconds() const {
  return daysFromCivil(year, month, day) * 86400 + int64_t{hour} * 3600 + int64_t{minute} * 60 +
         second;
}

int CivilTime::daysInMonth(int64_t year, int month) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month == 2) {
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return leap ? 29 : 28;
  }
  return kDays[(month - 1) % 12];
}

}  // namespace vexa
