#include "util/TimeZone.h"

#include <gtest/gtest.h>

#include "util/CivilTime.h"
#include "util/DateFormat.h"

namespace vexa {
namespace time_zone_test {

TEST(CivilTimeTest, RoundTripsAcrossCenturiesAndLeapDays) {
  for (int64_t s = -5000000000LL; s < 5000000000LL; s += 86400 * 37 + 3671) {
    EXPECT_EQ(CivilTime::fromSeconds(s).toSeconds(), s);
  }
  const CivilTime leap = CivilTime::fromSeconds(951782400);  // 2000-02-29
  EXPECT_EQ(leap.year, 2000);
  EXPECT_EQ(leap.month, 2);
  EXPECT_EQ(leap.day, 29);
  EXPECT_EQ(leap.weekday, 2);  // Tuesday
  const CivilTime before = CivilTime::fromSeconds(-1);
  EXPECT_EQ(before.year, 1969);
  EXPECT_EQ(before.second, 59);
  EXPECT_EQ(before.weekday, 3);  // Wednesday
  EXPECT_EQ(CivilTime::daysInMonth(1900, 2), 28);
  EXPECT_EQ(CivilTime::daysInMonth(2000, 2), 29);
  EXPECT_EQ(CivilTime::daysInMonth(2023, 4), 30);
}

TEST(TimeZoneTest, WallClockReadingsInGapsAndOverlaps) {
  auto ny = TimeZone::named("America/New_York");
  ASSERT_TRUE(ny);
  // 2021-03-14 02:30 never happened; it reads as 03:30 EDT (07:30 UTC).
  EXPECT_EQ(ny->instantForWallClock(CivilTime{2021, 3, 14, 2, 30, 0}.toSeconds()), 1615707000);
  // 2021-11-07 01:30 happened twice; the earlier (EDT, 05:30 UTC) is taken.
  EXPECT_EQ(ny->instantForWallClock(CivilTime{2021, 11, 7, 1, 30, 0}.toSeconds()), 1636263000);
  auto berlin = TimeZone::named("Europe/Berlin");
  ASSERT_TRUE(berlin);
  // 2021-10-31 02:30 happened twice in Berlin; the earlier is CEST (00:30 UTC).
  EXPECT_EQ(berlin->instantForWallClock(CivilTime{2021, 10, 31, 2, 30, 0}.toSeconds()), 1635640200);
  EXPECT_EQ(berlin->offsetAt(1635640200), 7200);
  EXPECT_EQ(berlin->offsetAt(1635640200 + 3600), 3600);
}

TEST(TimeZoneTest, UnknownNamesAndAbbreviations) {
  EXPECT_FALSE(TimeZone::named("Mars/Olympus_Mons"));
  EXPECT_FALSE(TimeZone::named(""));
  EXPECT_FALSE(TimeZone::byAbbreviation("XYZT"));
  ASSERT_TRUE(TimeZone::byAbbreviation("UTC"));
  EXPECT_EQ(TimeZone::byAbbreviation("IST")->offsetAt(0), 19800);
  EXPECT_EQ(TimeZone::fixed(-3600)->offsetAt(123), -3600);
}

TEST(DateFormatTest, QuotedTextAndUnknownLettersStayLiteral) {
  auto utc = TimeZone::fixed(0);
  EXPECT_EQ(DateFormat::format(0, "'yyyy' yyyy ''x'' 'it''s' Q", *utc), "yyyy 1970 'x' it's Q");
  EXPECT_EQ(DateFormat::parse("yyyy 1971 'x'", "'yyyy' yyyy ''x''", *utc), 31536000);
  EXPECT_EQ(DateFormat::format(-1, "yyyy-MM-dd HH:mm:ss EEEE", *utc),
            "1969-12-31 23:59:59 Wednesday");
  EXPECT_EQ(DateFormat::parse("Jan 2 1970", "MMM d yyyy", *utc), 86400);
  EXPECT_EQ(DateFormat::parse("february 1 1970", "MMMM d yyyy", *utc), 31 * 86400);
  EXPECT_FALSE(DateFormat::parse("Foo 1 1970", "MMM d yyyy", *utc));
  EXPECT_EQ(DateFormat::parse("1970-01-01T00:00:00Z", "yyyy-MM-dd'T'HH:mm:ssZ", *utc), 0);
  EXPECT_EQ(DateFormat::parse("1970-01-01 01:00 GMT+1", "yyyy-MM-dd HH:mm Z", *utc), 0);
  EXPECT_FALSE(DateFormat::parse("1970-01-01 01:00 +25:00", "yyyy-MM-dd HH:mm Z", *utc));
}

TEST(DateFormatTest, OversizedFieldsAreBoundedNotOverflowed) {
  auto utc = TimeZone::fixed(0);
  EXPECT_EQ(DateFormat::format(0.5, std::string(12, 'S'), *utc), "500000000000");
  auto withFraction = DateFormat::parse("00:00:01.1234567890123", "HH:mm:ss.S", *utc);
  ASSERT_TRUE(withFraction);
  EXPECT_NEAR(*withFraction, 1.123456789, 1e-9);
  EXPECT_FALSE(DateFormat::parse("12345678901234567890", "yyyy", *utc));
  EXPECT_EQ(DateFormat::parse("999999999", "yyyy", *utc).has_value(), true);
}

}  // namespace time_zone_test
}  // namespace vexa
