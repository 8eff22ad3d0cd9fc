#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vexa::tools {

// The dashboard's figures as text. Every function answers plain strings measured in terminal
// cells: one cell per code point (the dashboard's own glyphs are all single-width). In ASCII
// mode nothing answered has a byte of 0x80 or more.
class DashboardText {
 public:
  // A bar of exactly `width` cells for a fraction, clamped to 0..1 (NaN counts as 0). UTF-8
  // bars use full blocks with an eighth-block tip; ASCII bars '#' on '-'.
  static std::string bar(double fraction, int width, bool ascii);

  // Decimal units, three significant figures: "0 B", "999 B", "1.50 kB", "32.8 GB", up to EB.
  static std::string bytes(double count);
  // A transfer rate: bytes(rate) + "/s". Negative or non-finite rates read "-".
  static std::string rate(double bytesPerSecond);
  // A whole percentage of a fraction, "0%" to "100%"; NaN reads "-".
  static std::string percent(double fraction);
  // "3d 04:05" from seconds; under a day "04:05:06".
  static std::string duration(double seconds);

  // The newest `width` samples of a history as a sparkline of exactly `width` cells, scaled to
  // the largest of them; missing samples on the left are blank, an all-zero history lies flat
  // on the bottom.
  static std::string sparkline(const std::vector<double>& history, int width, bool ascii);

  // A panel's title line: "── CPU ─────" (ASCII "-- CPU -----"), `width` cells.
  static std::string rule(std::string_view title, int width, bool ascii);

  // Cells taken by UTF-8 text (code points; bytes that are not UTF-8 count one each).
  static int cells(std::string_view text);
  // Cut to at most `width` cells, then padded with spaces to exactly `width`; control
  // characters become '?'.
  static std::string fit(std::string_view text, int width);
  // Every code point at or above 0x80 (and every stray byte) becomes '?'.
  static std::string asciiOnly(std::string_view text);
};

}  // namespace vexa::tools
