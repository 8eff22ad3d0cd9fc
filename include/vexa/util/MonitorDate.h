#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "vexa/Export.h"
#include "vexa/util/Date.h"

namespace vexa {

// Date operations: fixed display formats, timestamps counted from several epochs, and
// elapsed-time packing. Formatting and "local" epochs use the local time zone (TZ or
// /etc/localtime, historical rules included); day and month names are English.
//
// Display modes of toStringWithMode and the toDateStringFrom... operations:
//   0 "yyyy/MM/dd", 1 "yyyy-MM-dd", 2 "yyyy-MM-dd HH:mm:ss", 3 "yyyy-MM-dd HH:mm",
//   4 "MM-dd HH:mm", 5 "EEEE yy/MM/dd", 6 "HH:mm:ss", 7 "yyyyMMdd"; any other mode gives "".
// Safe from any thread.
class VEXA_EXPORT MonitorDate {
 public:
  // The Unix epoch.
  static Date UtcSinceDate();
  // The date moved by plus (UtcToLocalDate, toLocalTime) or minus (localToUtcDate,
  // toGlobalTime) the local zone's offset from UTC at that date.
  static Date UtcToLocalDate(Date date);
  static Date localToUtcDate(Date date);
  static Date toLocalTime(Date date);
  static Date toGlobalTime(Date date);

  // Parses with `format` (default "yyyy-MM-dd HH:mm:ss Z"); empty when it does not match.
  static std::optional<Date> dateFromString(const std::string& text,
                                            const std::optional<std::string>& format = {});
  // "yyyy/MM/dd" where the user's locale writes dates with the year mark (Chinese, Japanese),
  // otherwise "MM/dd/yyyy".
  static std::string systemDateFormatter();

  static std::string toStringWithMode(Date date, int mode);
  static std::string toStringWithFormatter(Date date, const std::string& format);
  static std::string toShortDateString(Date date);

  // "-" below one second; "MM:SS" below one hour; else "HH:MM:SS".
  static std::string getAutoTime(int64_t milliseconds);

  static std::string toDateStringFrom1970(double seconds, int mode);
  static std::string toDateStringFrom1970(double seconds, const std::string& format);
  static std::string toDateStringFrom1904(double seconds, int mode);
  static std::string toDateStringFrom1904(double seconds, const std::string& format);
  static std::string toDateStringFrom1910(double seconds, int mode);
  static std::string toDateStringFrom1910(double seconds, const std::string& format);
  static std::string toDateStringFrom2001(double seconds, int mode);
  static std::string toDateStringFrom2001(double seconds, const std::string& format);

  // Always empty, whatever the platform: kept for callers that test them.
  static std::optional<Date> date1970();
  static std::optional<Date> date1904();
  static std::optional<Date> date2001();

  // `seconds` after 1904-01-01 00:00:00 local time.
  static Date getDateTimeFromTimeStamp(double seconds);
  // `seconds` + `offset` after 1904-01-01 00:00:00 local time; the offset is not added when
  // `seconds` is exactly 3,130,000,000.
  static Date getDateTimeFromTimeStamp1904(double seconds, double offset);
  // `seconds` + `offset` after 1970-01-01 00:00:00 local time; when `seconds` is exactly
  // 3,130,000,000 the epoch is 1970-01-01 08:00:00 local and the offset is not added.
  static Date getDateTimeFromTimeStamp1970(double seconds, double offset);
  // `seconds` after 1970-01-01 08:00:00 on the wall clock of the named zone (local when empty
  // or unknown).
  static Date getDateTimeFromTimeStamp1970(double seconds, const std::string& zoneName);
  // `seconds` after 2001-01-01 00:00:00 on the wall clock of the zone with that abbreviation
  // (local when empty or unknown).
  static Date getDateTimeFromTimeStamp2001(double seconds, const std::string& zoneAbbreviation);
  // `seconds` after 1910-01-13 06:58:00 local time.
  static Date getDateTimeFromTimeStamp1910(double seconds);

  // Seconds since 1904-01-01 00:00:00 local, since 1970-01-01 08:00:00 local, and since
  // 2001-01-01 00:00:00 in Africa/Bamako (UTC).
  static double getTimeStampFrom1904(Date date);
  static double getTimeStampFrom1970(Date date);
  static double getTimeStampFrom2001(Date date);

  // The calendar difference from `date` to now (local wall clock) packed as
  // years*10^10 + months*10^8 + days*10^6 + hours*10^4 + minutes*100 + seconds; negative when
  // `date` is in the future.
  static int64_t getTimeGap(Date date);
  static int64_t getTimeGap(Date from, Date to);
  static int64_t getTimeGapWithTimeStamp1970(double seconds);
  // Unpacks such a number; any output pointer may be null.
  static void convertTimeGap(int64_t gap, int* year, int* month, int* day, int* hour, int* minute,
                             int* second);
};

}  // namespace vexa
