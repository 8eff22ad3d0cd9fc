#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "DashboardText.h"

namespace vexa::tools {
namespace dashboard_text_test {

bool isAscii(const std::string& text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

TEST(DashboardTextTest, BarsKeepTheirWidthAtEveryFraction) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  for (const bool ascii : {false, true}) {
    for (const double fraction : {0.0, 1e-9, 0.0625, 0.5, 0.999, 1.0, 7.0, -3.0, nan, inf, -inf}) {
      for (const int width : {1, 3, 10, 57}) {
        const std::string bar = DashboardText::bar(fraction, width, ascii);
        EXPECT_EQ(DashboardText::cells(bar), width) << fraction << " in " << width;
        if (ascii) {
          EXPECT_TRUE(isAscii(bar));
        }
      }
    }
  }
  EXPECT_EQ(DashboardText::bar(0, 4, true), "----");
  EXPECT_EQ(DashboardText::bar(1, 4, true), "####");
  EXPECT_EQ(DashboardText::bar(nan, 4, true), "----");
  EXPECT_EQ(DashboardText::bar(2, 4, false), "████");
  EXPECT_EQ(DashboardText::bar(0.5, 4, false), "██  ");
  // An eighth of a cell: the tip shows that the figure is not nothing.
  EXPECT_EQ(DashboardText::bar(1.0 / 32, 4, false), "▏   ");
  EXPECT_EQ(DashboardText::bar(0.5, 0, false), "");
}

TEST(DashboardTextTest, BytesAndRatesInDecimalUnits) {
  EXPECT_EQ(DashboardText::bytes(0), "0 B");
  EXPECT_EQ(DashboardText::bytes(999), "999 B");
  EXPECT_EQ(DashboardText::bytes(999.6), "1.00 kB");
  EXPECT_EQ(DashboardText::bytes(1500), "1.50 kB");
  EXPECT_EQ(DashboardText::bytes(32768000000), "32.8 GB");
  EXPECT_EQ(DashboardText::bytes(270553174016), "271 GB");
  EXPECT_EQ(DashboardText::bytes(18446744073709551615.0), "18.4 EB");
  EXPECT_EQ(DashboardText::rate(0), "0 B/s");
  EXPECT_EQ(DashboardText::rate(1250000), "1.25 MB/s");
  // Beyond the largest unit the figure stays short instead of growing digits.
  EXPECT_EQ(DashboardText::rate(1e300), "1e+282 EB/s");
  EXPECT_EQ(DashboardText::rate(-1), "-");
  EXPECT_EQ(DashboardText::rate(std::numeric_limits<double>::quiet_NaN()), "-");
  EXPECT_EQ(DashboardText::rate(std::numeric_limits<double>::infinity()), "-");
}

TEST(DashboardTextTest, PercentagesAndDurations) {
  EXPECT_EQ(DashboardText::percent(0), "0%");
  EXPECT_EQ(DashboardText::percent(0.125), "13%");
  EXPECT_EQ(DashboardText::percent(1), "100%");
  EXPECT_EQ(DashboardText::percent(1.7), "100%");
  EXPECT_EQ(DashboardText::percent(-0.2), "0%");
  EXPECT_EQ(DashboardText::percent(std::nan("")), "-");
  EXPECT_EQ(DashboardText::duration(0), "00:00:00");
  EXPECT_EQ(DashboardText::duration(3 * 86400 + 4 * 3600 + 5 * 60 + 6), "3d 04:05");
  EXPECT_EQ(DashboardText::duration(-1), "-");
}

TEST(DashboardTextTest, SparklinesOfShortFlatAndLongHistories) {
  EXPECT_EQ(DashboardText::sparkline({}, 5, false), "     ");
  EXPECT_EQ(DashboardText::sparkline({}, 0, false), "");
  EXPECT_EQ(DashboardText::sparkline({0, 0, 0}, 4, false), " ▁▁▁");
  EXPECT_EQ(DashboardText::sparkline({0, 0, 0}, 4, true), " ___");
  EXPECT_EQ(DashboardText::sparkline({7, 7}, 2, false), "██");
  EXPECT_EQ(DashboardText::sparkline({0, 35, 70}, 3, false), "▁▅█");
  // Only the newest samples are shown and scaled: the old peak is gone.
  EXPECT_EQ(DashboardText::sparkline({1000, 1, 2}, 2, true), "=#");
  const std::vector<double> odd = {std::nan(""), -5, std::numeric_limits<double>::infinity(), 4};
  EXPECT_EQ(DashboardText::sparkline(odd, 4, true), "___#");
}

TEST(DashboardTextTest, FittingCountsCellsNotBytes) {
  EXPECT_EQ(DashboardText::cells("°C ↓↑"), 5);
  EXPECT_EQ(DashboardText::fit("ab", 4), "ab  ");
  EXPECT_EQ(DashboardText::fit("↓↓↓↓", 2), "↓↓");
  EXPECT_EQ(DashboardText::fit("a\tb\x1b", 4), "a?b?");
  // A sequence cut short is counted and kept byte by byte, never read past its end.
  EXPECT_EQ(DashboardText::cells("x\xe2\x86"), 3);
  EXPECT_EQ(DashboardText::asciiOnly("Zoë ↓ \xff!"), "Zo? ? ?!");
  EXPECT_EQ(DashboardText::rule("CPU", 10, true), "-- CPU ---");
  EXPECT_EQ(DashboardText::rule("a long title", 6, false), "── a l");
}

}  // namespace dashboard_text_test
}  // namespace vexa::tools
