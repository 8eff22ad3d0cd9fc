#include "vexa/util/MonitorDate.h"

#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace vexa {
namespace monitor_date_test {

using test::ScopedEnv;

constexpr double k1904 = -2082844800;  // 1904-01-01 00:00:00 UTC
constexpr double k2001 = 978307200;    // 2001-01-01 00:00:00 UTC
constexpr double kHour = 3600;

TEST(MonitorDateTest, DisplayModes) {
  ScopedEnv tz("TZ", "UTC");
  const Date date(1700000000.25);  // Tuesday 2023-11-14 22:13:20 UTC
  const char* expected[] = {"2023/11/14",       "2023-11-14",  "2023-11-14 22:13:20",
                            "2023-11-14 22:13", "11-14 22:13", "Tuesday 23/11/14",
                            "22:13:20",         "20231114"};
  for (int mode = 0; mode < 8; ++mode) {
    EXPECT_EQ(MonitorDate::toStringWithMode(date, mode), expected[mode]) << mode;
  }
  EXPECT_EQ(MonitorDate::toStringWithMode(date, 8), "");
  EXPECT_EQ(MonitorDate::toStringWithMode(date, -1), "");
  EXPECT_EQ(MonitorDate::toShortDateString(date), "2023-11-14");
  EXPECT_EQ(MonitorDate::toStringWithFormatter(date, "hh:mm a 'at' EEE, MMM d ZZZZZ SSS"),
            "10:13 PM at Tue, Nov 14 +00:00 250");
  ScopedEnv shanghai("TZ", "Asia/Shanghai");
  EXPECT_EQ(MonitorDate::toStringWithMode(date, 2), "2023-11-15 06:13:20");
  EXPECT_EQ(MonitorDate::toStringWithFormatter(date, "Z"), "+0800");
}

TEST(MonitorDateTest, ParsingWithTheDefaultAndGivenFormats) {
  ScopedEnv tz("TZ", "Asia/Shanghai");
  EXPECT_EQ(MonitorDate::dateFromString("2023-11-14 22:13:20 +0000"), Date(1700000000));
  EXPECT_EQ(MonitorDate::dateFromString("2023-11-14 22:13:20 +0800"), Date(1700000000 - 8 * kHour));
  EXPECT_EQ(MonitorDate::dateFromString("2023-11-14 22:13:20 -05:30"),
            Date(1700000000 + 5.5 * kHour));
  // Without a zone in the text the local zone applies.
  EXPECT_EQ(MonitorDate::dateFromString("2023/11/15 06:13:20", "yyyy/MM/dd HH:mm:ss"),
            Date(1700000000));
  EXPECT_EQ(MonitorDate::dateFromString("20231115", "yyyyMMdd"), Date(1699977600));
  EXPECT_EQ(MonitorDate::dateFromString("10:13 PM", "hh:mm a"),
            Date(22 * kHour + 13 * 60 - 8 * kHour));
  for (const char* bad :
       {"2023-02-30 00:00:00 +0000", "2023-11-14 24:00:00 +0000", "2023-11-14 22:13:20",
        "2023-11-14 22:13:20 +0000 trailing", "", "yesterday"}) {
    EXPECT_FALSE(MonitorDate::dateFromString(bad)) << bad;
  }
  EXPECT_FALSE(MonitorDate::dateFromString("202311", "yyyyMMdd"));
  EXPECT_FALSE(MonitorDate::dateFromString("13:00 PM", "hh:mm a"));
}

TEST(MonitorDateTest, AutoTime) {
  const std::pair<int64_t, const char*> cases[] = {{-5, "-"},
                                                   {0, "-"},
                                                   {999, "-"},
                                                   {1000, "00:01"},
                                                   {61000, "01:01"},
                                                   {3599999, "59:59"},
                                                   {3600000, "01:00:00"},
                                                   {3661000, "01:01:01"},
                                                   {360000000, "100:00:00"}};
  for (auto [ms, text] : cases) EXPECT_EQ(MonitorDate::getAutoTime(ms), text) << ms;
}

TEST(MonitorDateTest, EpochsInTheLocalZone) {
  ScopedEnv tz("TZ", "UTC");
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp(10), Date(k1904 + 10));
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp1904(10, 5), Date(k1904 + 15));
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp1904(3130000000.0, 5), Date(k1904 + 3130000000.0));
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp1910(60), Date(-1892394120 + 60));
  EXPECT_EQ(MonitorDate::getTimeStampFrom1904(Date(k1904 + 42)), 42);
  EXPECT_EQ(MonitorDate::getTimeStampFrom1970(Date(8 * kHour + 1)), 1);
  EXPECT_EQ(MonitorDate::toDateStringFrom1904(0, 2), "1904-01-01 00:00:00");
  EXPECT_EQ(MonitorDate::toDateStringFrom1910(0, "yyyy-MM-dd HH:mm"), "1910-01-13 06:58");
  EXPECT_EQ(MonitorDate::toDateStringFrom2001(86400, 1), "2001-01-02");

  ScopedEnv shanghai("TZ", "Asia/Shanghai");
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp1970(100, 5), Date(-8 * kHour + 105));
  EXPECT_EQ(MonitorDate::toDateStringFrom1970(0, 2), "1970-01-01 00:00:00");
  EXPECT_EQ(MonitorDate::toDateStringFrom1970(86400, "yyyy/MM/dd"), "1970/01/02");
  // Local 1970-01-01 08:00:00 in a UTC+8 zone is the Unix epoch.
  EXPECT_EQ(MonitorDate::getTimeStampFrom1970(Date(1700000000)), 1700000000);
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp(0), Date(k1904 - 8 * kHour));
}

TEST(MonitorDateTest, TheExactQuirkValueMovesThe1970EpochAndDropsTheOffset) {
  ScopedEnv tz("TZ", "Europe/Berlin");  // UTC+1 in January 1970
  const double quirk = 3130000000.0;
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp1970(quirk, 999), Date(7 * kHour + quirk));
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp1970(quirk + 1, 999),
            Date(-1 * kHour + quirk + 1 + 999));
}

TEST(MonitorDateTest, EpochsInNamedZones) {
  ScopedEnv tz("TZ", "Asia/Shanghai");
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp1970(5, "Asia/Tokyo"), Date(-1 * kHour + 5));
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp1970(5, "UTC"), Date(8 * kHour + 5));
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp1970(5, ""), Date(5));
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp1970(5, "No/Such_Zone"), Date(5));
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp2001(7, "GMT"), Date(k2001 + 7));
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp2001(7, "JST"), Date(k2001 - 9 * kHour + 7));
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp2001(7, "PST"), Date(k2001 + 8 * kHour + 7));
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp2001(7, ""), Date(k2001 - 8 * kHour + 7));
  // 2001 stamps count from midnight in a UTC zone whatever the local zone.
  EXPECT_EQ(MonitorDate::getTimeStampFrom2001(Date(k2001 + 5)), 5);
}

TEST(MonitorDateTest, LocalShifts) {
  ScopedEnv tz("TZ", "Asia/Kolkata");
  const double offset = 5.5 * kHour;
  EXPECT_EQ(MonitorDate::UtcSinceDate(), Date(0));
  EXPECT_EQ(MonitorDate::UtcToLocalDate(Date(1000)), Date(1000 + offset));
  EXPECT_EQ(MonitorDate::toLocalTime(Date(1000)), Date(1000 + offset));
  EXPECT_EQ(MonitorDate::localToUtcDate(Date(1000)), Date(1000 - offset));
  EXPECT_EQ(MonitorDate::toGlobalTime(Date(1000)), Date(1000 - offset));
}

TEST(MonitorDateTest, ParsedEpochsAreAlwaysNull) {
  EXPECT_FALSE(MonitorDate::date1970());
  EXPECT_FALSE(MonitorDate::date1904());
  EXPECT_FALSE(MonitorDate::date2001());
}

TEST(MonitorDateTest, SystemDateFormatterFollowsTheTimeLocale) {
  ScopedEnv all("LC_ALL", std::nullopt);
  ScopedEnv time("LC_TIME", std::nullopt);
  {
    ScopedEnv lang("LANG", "zh_CN.UTF-8");
    EXPECT_EQ(MonitorDate::systemDateFormatter(), "yyyy/MM/dd");
  }
  {
    ScopedEnv lang("LANG", "en_US.UTF-8");
    EXPECT_EQ(MonitorDate::systemDateFormatter(), "MM/dd/yyyy");
    ScopedEnv override("LC_ALL", "ja_JP.UTF-8");
    EXPECT_EQ(MonitorDate::systemDateFormatter(), "yyyy/MM/dd");
  }
  ScopedEnv korean("LANG", "ko_KR.UTF-8");  // writes its own year mark, not U+5E74
  EXPECT_EQ(MonitorDate::systemDateFormatter(), "MM/dd/yyyy");
  // Either way the 1910 epoch is the same instant.
  ScopedEnv tz("TZ", "UTC");
  EXPECT_EQ(MonitorDate::getDateTimeFromTimeStamp1910(0), Date(-1892394120));
}

TEST(MonitorDateTest, TimeGapPacking) {
  ScopedEnv tz("TZ", "UTC");
  // 2020-01-01 00:00:00 to 2021-03-04 04:05:06: 1 year 2 months 3 days 4:05:06.
  EXPECT_EQ(MonitorDate::getTimeGap(Date(1577836800), Date(1614830706)), 10203040506);
  // From January 31st one month lands on February 29th (clamped), then one day to March 1st.
  EXPECT_EQ(MonitorDate::getTimeGap(Date(1580428800), Date(1583020800)), 101000000);
  EXPECT_EQ(MonitorDate::getTimeGap(Date(1614830706), Date(1577836800)), -10203040506);
  EXPECT_EQ(MonitorDate::getTimeGap(Date(5), Date(5)), 0);
  EXPECT_EQ(MonitorDate::getTimeGap(Date(0), Date(59)), 59);
  // Against now: a date a little in the past is a small positive gap.
  const int64_t recent = MonitorDate::getTimeGap(Date::now().addingTimeInterval(-90));
  EXPECT_GE(recent, 130);
  EXPECT_LE(recent, 200);
  EXPECT_GE(MonitorDate::getTimeGapWithTimeStamp1970(Date::now().timeIntervalSince1970() - 90),
            130);

  int y, mo, d, h, mi, s;
  MonitorDate::convertTimeGap(10203040506, &y, &mo, &d, &h, &mi, &s);
  EXPECT_EQ(std::vector<int>({y, mo, d, h, mi, s}), std::vector<int>({1, 2, 3, 4, 5, 6}));
  MonitorDate::convertTimeGap(990000000000LL, &y, nullptr, nullptr, nullptr, nullptr, &s);
  EXPECT_EQ(y, 99);
  EXPECT_EQ(s, 0);
}

}  // namespace monitor_date_test
}  // namespace vexa
