#include "vexa/util/MonitorDate.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "util/CivilTime.h"
#include "util/DateFormat.h"
#include "util/TimeZone.h"

namespace vexa {

namespace {

constexpr double kQuirkSeconds = 3130000000.0;

const char* modeFormat(int mode) {
  static const char* const kFormats[] = {"yyyy/MM/dd",       "yyyy-MM-dd",  "yyyy-MM-dd HH:mm:ss",
                                         "yyyy-MM-dd HH:mm", "MM-dd HH:mm", "EEEE yy/MM/dd",
                                         "HH:mm:ss",         "yyyyMMdd"};
  return mode >= 0 && mode < 8 ? kFormats[mode] : nullptr;
}

int64_t wall(int64_t year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  CivilTime c;
  c.year = year;
  c.month = month;
  c.day = day;
  c.hour = hour;
  c.minute = minute;
  c.second = second;
  return c.toSeconds();
}

// The instant a zone's wall clock shows the given time.
double epochIn(const TimeZone& zone, int64_t wallSeconds) {
  return static_cast<double>(zone.instantForWallClock(wallSeconds));
}

double localEpoch(int64_t wallSeconds) { return epochIn(*TimeZone::local(), wallSeconds); }

int localOffset(Date date) {
  return TimeZone::local()->offsetAt(
      static_cast<int64_t>(std::floor(date.timeIntervalSince1970())));
}

std::string formatMode(Date date, int mode) {
  const char* format = modeFormat(mode);
  return format ? MonitorDate::toStringWithFormatter(date, format) : std::string();
}

std::string twoDigits(int64_t value) {
  char buffer[24];
  std::snprintf(buffer, sizeof buffer, "%02lld", static_cast<long long>(value));
  return buffer;
}

}  // namespace

Date Date::now() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return Date(std::chrono::duration<double>(since).count());
}

Date MonitorDate::UtcSinceDate() { return Date(0); }

Date MonitorDate::UtcToLocalDate(Date date) { return date.addingTimeInterval(localOffset(date)); }

Date MonitorDate::localToUtcDate(Date date) { return date.addingTimeInterval(-localOffset(date)); }

Date MonitorDate::toLocalTime(Date date) { return UtcToLocalDate(date); }

Date MonitorDate::toGlobalTime(Date date) { return localToUtcDate(date); }

std::optional<Date> MonitorDate::dateFromString(const std::string& text,
                                                const std::optional<std::string>& format) {
  auto seconds =
      DateFormat::parse(text, format.value_or("yyyy-MM-dd HH:mm:ss Z"), *TimeZone::local());
  if (!seconds) return std::nullopt;
  return Date(*seconds);
}

std::string MonitorDate::systemDateFormatter() {
  // The medium date of Chinese and Japanese locales carries the year mark U+5E74; the language
  // of the time locale (LC_ALL, then LC_TIME, then LANG) tells whether it is one of them.
  std::string locale;
  for (const char* name : {"LC_ALL", "LC_TIME", "LANG"}) {
    const char* value = std::getenv(name);
    if (value && *value) {
      locale = value;
      break;
    }
  }
  const std::string language = locale.substr(0, locale.find_first_of("_.@"));
  const bool yearMark = language == "zh" || language == "ja" || language == "yue";
  return yearMark ? "yyyy/MM/dd" : "MM/dd/yyyy";
}

std::string MonitorDate::toStringWithMode(Date date, int mode) { return formatMode(date, mode); }

std::string MonitorDate::toStringWithFormatter(Date date, const std::string& format) {
  return DateFormat::format(date.timeIntervalSince1970(), format, *TimeZone::local());
}

std::string MonitorDate::toShortDateString(Date date) {
  return toStringWithFormatter(date, "yyyy-MM-dd");
}

std::string MonitorDate::getAutoTime(int64_t milliseconds) {
  if (milliseconds < 1000) return "-";
  const int64_t total = milliseconds / 1000;
  const int64_t hours = total / 3600, minutes = total / 60 % 60, seconds = total % 60;
  if (total < 3600) return twoDigits(minutes) + ":" + twoDigits(seconds);
  return twoDigits(hours) + ":" + twoDigits(minutes) + ":" + twoDigits(seconds);
}

std::string MonitorDate::toDateStringFrom1970(double seconds, int mode) {
  return formatMode(getDateTimeFromTimeStamp1970(seconds, 0.0), mode);
}

std::string MonitorDate::toDateStringFrom1970(double seconds, const std::string& format) {
  return toStringWithFormatter(getDateTimeFromTimeStamp1970(seconds, 0.0), format);
}

std::string MonitorDate::toDateStringFrom1904(double seconds, int mode) {
  return formatMode(getDateTimeFromTimeStamp1904(seconds, 0.0), mode);
}

std::string MonitorDate::toDateStringFrom1904(double seconds, const std::string& format) {
  return toStringWithFormatter(getDateTimeFromTimeStamp1904(seconds, 0.0), format);
}

std::string MonitorDate::toDateStringFrom1910(double seconds, int mode) {
  return formatMode(getDateTimeFromTimeStamp1910(seconds), mode);
}

std::string MonitorDate::toDateStringFrom1910(double seconds, const std::string& format) {
  return toStringWithFormatter(getDateTimeFromTimeStamp1910(seconds), format);
}

std::string MonitorDate::toDateStringFrom2001(double seconds, int mode) {
  return formatMode(getDateTimeFromTimeStamp2001(seconds, ""), mode);
}

std::string MonitorDate::toDateStringFrom2001(double seconds, const std::string& format) {
  return toStringWithFormatter(getDateTimeFromTimeStamp2001(seconds, ""), format);
}

std::optional<Date> MonitorDate::date1970() { return std::nullopt; }

std::optional<Date> MonitorDate::date1904() { return std::nullopt; }

std::optional<Date> MonitorDate::date2001() { return std::nullopt; }

Date MonitorDate::getDateTimeFromTimeStamp(double seconds) {
  return Date(localEpoch(wall(1904, 1, 1)) + seconds);
}

Date MonitorDate::getDateTimeFromTimeStamp1904(double seconds, double offset) {
  const double added = seconds == kQuirkSeconds ? 0 : offset;
  return Date(localEpoch(wall(1904, 1, 1)) + seconds + added);
}

Date MonitorDate::getDateTimeFromTimeStamp1970(double seconds, double offset) {
  if (seconds == kQuirkSeconds) return Date(localEpoch(wall(1970, 1, 1, 8)) + seconds);
  return Date(localEpoch(wall(1970, 1, 1)) + seconds + offset);
}

Date MonitorDate::getDateTimeFromTimeStamp1970(double seconds, const std::string& zoneName) {
  auto zone = zoneName.empty() ? nullptr : TimeZone::named(zoneName);
  if (!zone) zone = TimeZone::local();
  return Date(epochIn(*zone, wall(1970, 1, 1, 8)) + seconds);
}

Date MonitorDate::getDateTimeFromTimeStamp2001(double seconds,
                                               const std::string& zoneAbbreviation) {
  auto zone = zoneAbbreviation.empty() ? nullptr : TimeZone::byAbbreviation(zoneAbbreviation);
  if (!zone) zone = TimeZone::local();
  return Date(epochIn(*zone, wall(2001, 1, 1)) + seconds);
}

Date MonitorDate::getDateTimeFromTimeStamp1910(double seconds) {
  const std::string format = systemDateFormatter();
  const std::string text = format == "yyyy/MM/dd" ? "1910/01/13 06:58:00" : "01/13/1910 06:58:00";
  auto epoch = DateFormat::parse(text, format + " HH:mm:ss", *TimeZone::local());
  return Date(epoch.value_or(localEpoch(wall(1910, 1, 13, 6, 58))) + seconds);
}

double MonitorDate::getTimeStampFrom1904(Date date) {
  return date.timeIntervalSince1970() - localEpoch(wall(1904, 1, 1));
}

double MonitorDate::getTimeStampFrom1970(Date date) {
  return date.timeIntervalSince1970() - localEpoch(wall(1970, 1, 1, 8));
}

double MonitorDate::getTimeStampFrom2001(Date date) {
  auto zone = TimeZone::named("Africa/Bamako");
  if (!zone) zone = TimeZone::fixed(0);  // the zone has kept UTC since 1960
  return date.timeIntervalSince1970() - epochIn(*zone, wall(2001, 1, 1));
}

int64_t MonitorDate::getTimeGap(Date date) { return getTimeGap(date, Date::now()); }

int64_t MonitorDate::getTimeGap(Date from, Date to) {
  if (from > to) return -getTimeGap(to, from);
  auto local = TimeZone::local();
  auto wallOf = [&](Date d) {
    const auto utc = static_cast<int64_t>(std::floor(d.timeIntervalSince1970()));
    return utc + local->offsetAt(utc);
  };
  const int64_t start = wallOf(from), end = wallOf(to);
  const CivilTime a = CivilTime::fromSeconds(start), b = CivilTime::fromSeconds(end);
  // Whole months first (a day past the end of the target month is clamped to its last day, as
  // calendars do), then what remains as days, hours, minutes and seconds.
  auto addMonths = [&](int64_t months) {
    CivilTime c = a;
    const int64_t index = a.year * 12 + (a.month - 1) + months;
    c.year = index >= 0 ? index / 12 : (index - 11) / 12;
    c.month = static_cast<int>(index - c.year * 12) + 1;
    c.day = std::min(a.day, CivilTime::daysInMonth(c.year, c.month));
    return c.toSeconds();
  };
  int64_t months = (b.year - a.year) * 12 + (b.month - a.month);
  while (months > 0 && addMonths(months) > end) --months;
  int64_t rest = end - addMonths(months);
  const int64_t days = rest / 86400;
  rest %= 86400;
  return months / 12 * 10000000000LL + months % 12 * 100000000LL + days * 1000000LL +
         rest / 3600 * 10000LL + rest / 60 % 60 * 100LL + rest % 60;
}

int64_t MonitorDate::getTimeGapWithTimeStamp1970(double seconds) {
  return getTimeGap(Date(seconds));
}

void MonitorDate::convertTimeGap(int64_t gap, int* year, int* month, int* day, int* hour,
                                 int* minute, int* second) {
  if (year) *year = static_cast<int>(gap / 10000000000LL);
  if (month) *month = static_cast<int>(gap / 100000000LL % 100);
  if (day) *day = static_cast<int>(gap / 1000000LL % 100);
  if (hour) *hour = static_cast<int>(gap / 10000LL % 100);
  if (minute) *minute = static_cast<int>(gap / 100LL % 100);
  if (second) *second = static_cast<int>(gap % 100);
}

}  // namespace vexa
