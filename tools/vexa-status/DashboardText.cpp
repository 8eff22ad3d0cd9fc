#include "DashboardText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace vexa::tools {

namespace {

// Length of the UTF-8 sequence a lead byte starts; 1 for a byte that cannot lead one.
size_t sequenceLength(unsigned char lead) {
  if (lead >= 0xF0 && lead < 0xF8) return 4;
  if (lead >= 0xE0) return lead < 0xF0 ? 3 : 1;
  if (lead >= 0xC0) return 2;
  return 1;
}

// Walks `text` a code point at a time: fn(sequence) for each; a truncated or broken sequence
// is handed over one byte at a time.
template <typename Fn>
void forEachCell(std::string_view text, Fn&& fn) {
  size_t at = 0;
  while (at < text.size()) {
    size_t length = sequenceLength(static_cast<unsigned char>(text[at]));
    if (at + length > text.size()) length = 1;
    for (size_t k = 1; k < length; ++k) {
      if ((static_cast<unsigned char>(text[at + k]) & 0xC0) != 0x80) {
        length = 1;
        break;
      }
    }
    fn(text.substr(at, length));
    at += length;
  }
}

std::string repeat(std::string_view glyph, int count) {
  std::string out;
  for (int i = 0; i < count; ++i) out += glyph;
  return out;
}

}  // namespace

std::string DashboardText::bar(double fraction, int width, bool ascii) {
  if (width <= 0) return {};
  if (!(fraction > 0)) fraction = 0;  // NaN too
  fraction = std::min(fraction, 1.0);
  if (ascii) {
    const int filled = static_cast<int>(std::lround(fraction * width));
    return std::string(static_cast<size_t>(filled), '#') +
           std::string(static_cast<size_t>(width - filled), '-');
  }
  static constexpr std::array<std::string_view, 8> kTips = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
  const long eighths = std::lround(fraction * width * 8);
  const int full = static_cast<int>(eighths / 8);
  const int tip = static_cast<int>(eighths % 8);
  std::string out = repeat("█", full);
  out += kTips[static_cast<size_t>(tip)];
  return out + std::string(static_cast<size_t>(width - full - (tip ? 1 : 0)), ' ');
}

std::string DashboardText::bytes(double count) {
  if (!std::isfinite(count) || count < 0) return "-";
  static constexpr std::array<const char*, 7> kUnits = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};
  size_t unit = 0;
  // Rounded as printed, so that 999.9 kB reads "1.00 MB" rather than "1000 kB".
  while (unit + 1 < kUnits.size() && count >= 999.5) {
    count /= 1000;
    ++unit;
  }
  char text[32];
  if (unit == 0) {
    std::snprintf(text, sizeof text, "%.0f B", count);
  } else if (count >= 999.5) {
    std::snprintf(text, sizeof text, "%.3g %s", count, kUnits[unit]);  // beyond EB: 1.2e+03 EB
  } else if (count >= 99.95) {
    std::snprintf(text, sizeof text, "%.0f %s", count, kUnits[unit]);
  } else if (count >= 9.995) {
    std::snprintf(text, sizeof text, "%.1f %s", count, kUnits[unit]);
  } else {
    std::snprintf(text, sizeof text, "%.2f %s", count, kUnits[unit]);
  }
  return text;
}

std::string DashboardText::rate(double bytesPerSecond) {
  if (!std::isfinite(bytesPerSecond) || bytesPerSecond < 0) return "-";
  return bytes(bytesPerSecond) + "/s";
}

std::string DashboardText::percent(double fraction) {
  if (std::isnan(fraction)) return "-";
  const double clamped = std::clamp(fraction, 0.0, 1.0);
  return std::to_string(std::lround(clamped * 100)) + "%";
}

std::string DashboardText::duration(double seconds) {
  if (!std::isfinite(seconds) || seconds < 0) return "-";
  const auto total = static_cast<long long>(seconds);
  const long long days = total / 86400;
  const long long hours = total / 3600 % 24;
  const long long minutes = total / 60 % 60;
  char text[48];
  if (days > 0) {
    std::snprintf(text, sizeof text, "%lldd %02lld:%02lld", days, hours, minutes);
  } else {
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld", hours, minutes, total % 60);
  }
  return text;
}

std::string DashboardText::sparkline(const std::vector<double>& history, int width, bool ascii) {
  if (width <= 0) return {};
  static constexpr std::array<std::string_view, 8> kLevels = {"▁", "▂", "▃", "▄",
                                                              "▅", "▆", "▇", "█"};
  static constexpr std::string_view kAsciiLevels = "_.-~=+*#";
  const size_t shown = std::min(history.size(), static_cast<size_t>(width));
  const auto first = history.end() - static_cast<std::ptrdiff_t>(shown);
  double top = 0;
  for (auto it = first; it != history.end(); ++it) {
    if (std::isfinite(*it)) top = std::max(top, *it);
  }
  std::string out(static_cast<size_t>(width) - shown, ' ');
  for (auto it = first; it != history.end(); ++it) {
    size_t level = 0;
    if (top > 0 && std::isfinite(*it) && *it > 0) {
      level = static_cast<size_t>(std::lround(*it / top * 7));
    }
    if (ascii) {
      out += kAsciiLevels[level];
    } else {
      out += kLevels[level];
    }
  }
  return out;
}

std::string DashboardText::rule(std::string_view title, int width, bool ascii) {
  const std::string_view line = ascii ? "-" : "─";
  std::string out = repeat(line, 2) + " " + std::string(title) + " ";
  return fit(out + repeat(line, std::max(0, width - cells(out))), width);
}

int DashboardText::cells(std::string_view text) {
  int count = 0;
  forEachCell(text, [&count](std::string_view) { ++count; });
  return count;
}

std::string DashboardText::fit(std::string_view text, int width) {
  std::string out;
  int used = 0;
  forEachCell(text, [&](std::string_view cell) {
    if (used >= width) return;
    const auto lead = static_cast<unsigned char>(cell[0]);
    // A control character would take two cells ("^["), or move the cursor.
    if (lead < 0x20 || lead == 0x7F) {
      out += '?';
    } else {
      out += cell;
    }
    ++used;
  });
  if (used < width) out.append(static_cast<size_t>(width - used), ' ');
  return out;
}

std::string DashboardText::asciiOnly(std::string_view text) {
  std::string out;
  forEachCell(text, [&out](std::string_view cell) {
    out += static_cast<unsigned char>(cell[0]) < 0x80 ? cell[0] : '?';
  });
  return out;
}

}  // namespace vexa::tools
