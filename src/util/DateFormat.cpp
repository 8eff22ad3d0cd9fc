#include "util/DateFormat.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <vector>

#include "util/CivilTime.h"

namespace vexa {

namespace {

const char* const kMonths[] = {"January",   "February", "March",    "April",
                               "May",       "June",     "July",     "August",
                               "September", "October",  "November", "December"};
const char* const kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                 "Thursday", "Friday", "Saturday"};

struct Token {
  char letter = 0;  // 0 for literal text
  int count = 0;
  std::string literal;
};

bool isPatternLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool isFieldLetter(char c) {
  return std::string_view("yMdHhmsSaEZ").find(c) != std::string_view::npos;
}

std::vector<Token> tokenize(std::string_view pattern) {
  std::vector<Token> tokens;
  auto addLiteral = [&](char c) {
    if (tokens.empty() || tokens.back().letter != 0) tokens.push_back(Token{});
    tokens.back().literal += c;
  };
  for (size_t i = 0; i < pattern.size();) {
    const char c = pattern[i];
    if (c == '\'') {
      if (i + 1 < pattern.size() && pattern[i + 1] == '\'') {
        addLiteral('\'');
        i += 2;
        continue;
      }
      for (++i; i < pattern.size(); ++i) {
        if (pattern[i] == '\'') {
          if (i + 1 < pattern.size() && pattern[i + 1] == '\'') {
            addLiteral('\'');
            ++i;
          } else {
            break;
          }
        } else {
          addLiteral(pattern[i]);
        }
      }
      ++i;
      continue;
    }
    if (isPatternLetter(c) && isFieldLetter(c)) {
      size_t n = 1;
      while (i + n < pattern.size() && pattern[i + n] == c) ++n;
      tokens.push_back(Token{c, static_cast<int>(n), {}});
      i += n;
      continue;
    }
    addLiteral(c);
    ++i;
  }
  return tokens;
}

std::string padded(int64_t value, int width) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%0*lld", width, static_cast<long long>(value));
  return buffer;
}

std::string offsetText(int offset, bool colon) {
  const char sign = offset < 0 ? '-' : '+';
  const int a = std::abs(offset);
  return sign + padded(a / 3600, 2) + (colon ? ":" : "") + padded(a / 60 % 60, 2);
}

bool isNumericField(const Token& t) {
  return t.letter != 0 && std::string_view("yMdHhmsS").find(t.letter) != std::string_view::npos &&
         !(t.letter == 'M' && t.count >= 3);
}

// Matches one of `names` (full or three-letter form, ASCII case-insensitive) at `at`.
std::optional<int> matchName(std::string_view text, size_t& at, const char* const* names,
                             int count) {
  auto match = [&](std::string_view name) {
    if (text.size() - at < name.size()) return false;
    for (size_t k = 0; k < name.size(); ++k) {
      if (std::tolower(static_cast<unsigned char>(text[at + k])) !=
          std::tolower(static_cast<unsigned char>(name[k]))) {
        return false;
      }
    }
    return true;
  };
  for (int i = 0; i < count; ++i) {
    std::string_view full(names[i]);
    if (match(full)) {
      at += full.size();
      return i;
    }
  }
  for (int i = 0; i < count; ++i) {
    std::string_view shortName = std::string_view(names[i]).substr(0, 3);
    if (match(shortName)) {
      at += 3;
      return i;
    }
  }
  return std::nullopt;
}

std::optional<int> parseOffset(std::string_view text, size_t& at) {
  if (at < text.size() && text[at] == 'Z') {
    ++at;
    return 0;
  }
  for (std::string_view prefix : {"GMT", "UTC"}) {
    if (text.substr(at).starts_with(prefix)) {
      at += prefix.size();
      if (at >= text.size() || (text[at] != '+' && text[at] != '-')) return 0;
      break;
    }
  }
  if (at >= text.size() || (text[at] != '+' && text[at] != '-')) return std::nullopt;
  const int sign = text[at++] == '-' ? -1 : 1;
  auto digits = [&](size_t most) {
    size_t n = 0;
    int value = 0;
    while (n < most && at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]))) {
      value = value * 10 + (text[at++] - '0');
      ++n;
    }
    return std::pair{value, n};
  };
  auto [first, firstDigits] = digits(4);
  if (firstDigits == 0) return std::nullopt;
  int hours = first, minutes = 0;
  if (firstDigits > 2) {
    hours = first / 100;
    minutes = first % 100;
  } else if (at < text.size() && text[at] == ':') {
    ++at;
    auto [m, mDigits] = digits(2);
    if (mDigits != 2) return std::nullopt;
    minutes = m;
  }
  if (hours > 18 || minutes > 59) return std::nullopt;
  return sign * (hours * 3600 + minutes * 60);
}

}  // namespace

std::string DateFormat::format(double secondsSince1970, std::string_view pattern,
                               const TimeZone& zone) {
  const double whole = std::floor(secondsSince1970);
  const auto utc = static_cast<int64_t>(whole);
  const int offset = zone.offsetAt(utc);
  const CivilTime c = CivilTime::fromSeconds(utc + offset);
  std::string out;
  for (const Token& t : tokenize(pattern)) {
    switch (t.letter) {
      case 0:
        out += t.literal;
        break;
      case 'y':
        out += t.count == 2 ? padded(((c.year % 100) + 100) % 100, 2) : padded(c.year, t.count);
        break;
      case 'M':
        if (t.count >= 4) {
          out += kMonths[c.month - 1];
        } else if (t.count == 3) {
          out += std::string_view(kMonths[c.month - 1]).substr(0, 3);
        } else {
          out += padded(c.month, t.count);
        }
        break;
      case 'd':
        out += padded(c.day, t.count);
        break;
      case 'H':
        out += padded(c.hour, t.count);
        break;
      case 'h':
        out += padded(c.hour % 12 == 0 ? 12 : c.hour % 12, t.count);
        break;
      case 'm':
        out += padded(c.minute, t.count);
        break;
      case 's':
        out += padded(c.second, t.count);
        break;
      case 'S': {
        // Nine digits are all a double's fraction holds here; longer fields are padded.
        const int digits = std::min(t.count, 9);
        const double fraction = secondsSince1970 - whole;
        const auto scaled = static_cast<int64_t>(fraction * std::pow(10.0, digits));
        out += padded(scaled, digits);
        out.append(static_cast<size_t>(t.count - digits), '0');
        break;
      }
      case 'a':
        out += c.hour < 12 ? "AM" : "PM";
        break;
      case 'E':
        out +=
            t.count >= 4 ? std::string(kWeekdays[c.weekday]) : std::string(kWeekdays[c.weekday], 3);
        break;
      case 'Z':
        out += offsetText(offset, t.count >= 5);
        break;
    }
  }
  return out;
}

std::optional<double> DateFormat::parse(std::string_view text, std::string_view pattern,
                                        const TimeZone& zone) {
  const std::vector<Token> tokens = tokenize(pattern);
  CivilTime c;
  bool pm = false, sawAmPm = false, twelveHour = false;
  std::optional<int> offset;
  double fraction = 0;
  size_t at = 0;
  for (size_t i = 0; i < tokens.size(); ++i) {
    const Token& t = tokens[i];
    if (t.letter == 0) {
      if (text.substr(at, t.literal.size()) != t.literal) return std::nullopt;
      at += t.literal.size();
      continue;
    }
    if (isNumericField(t)) {
      // Adjacent numeric fields ("yyyyMMdd") take exactly their width; otherwise all digits.
      const bool fixedWidth = i + 1 < tokens.size() && isNumericField(tokens[i + 1]);
      const size_t most = fixedWidth        ? static_cast<size_t>(t.count)
                          : t.letter == 'S' ? SIZE_MAX
                                            : 10;
      size_t n = 0;
      int64_t value = 0;
      while (n < most && at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]))) {
        // Beyond nine digits only a fraction stays meaningful; its extra digits are dropped.
        if (n < 9) value = value * 10 + (text[at] - '0');
        ++at;
        ++n;
      }
      if (n == 0 || (fixedWidth && n != static_cast<size_t>(t.count))) return std::nullopt;
      if (n > 9 && t.letter != 'S') return std::nullopt;
      switch (t.letter) {
        case 'y':
          c.year = (t.count == 2 && n <= 2) ? (value < 70 ? 2000 + value : 1900 + value) : value;
          break;
        case 'M':
          c.month = static_cast<int>(value);
          break;
        case 'd':
          c.day = static_cast<int>(value);
          break;
        case 'H':
          c.hour = static_cast<int>(value);
          break;
        case 'h':
          c.hour = static_cast<int>(value);
          twelveHour = true;
          break;
        case 'm':
          c.minute = static_cast<int>(value);
          break;
        case 's':
          c.second = static_cast<int>(value);
          break;
        case 'S':
          fraction = static_cast<double>(value) /
                     std::pow(10.0, static_cast<double>(std::min<size_t>(n, 9)));
          break;
      }
      continue;
    }
    switch (t.letter) {
      case 'M': {
        auto month = matchName(text, at, kMonths, 12);
        if (!month) return std::nullopt;
        c.month = *month + 1;
        break;
      }
      case 'E':
        if (!matchName(text, at, kWeekdays, 7)) return std::nullopt;
        break;
      case 'a': {
        const std::string_view marker = text.substr(at, 2);
        if (marker == "AM" || marker == "am") {
          pm = false;
        } else if (marker == "PM" || marker == "pm") {
          pm = true;
        } else {
          return std::nullopt;
        }
        sawAmPm = true;
        at += 2;
        break;
      }
      case 'Z':
        offset = parseOffset(text, at);
        if (!offset) return std::nullopt;
        break;
    }
  }
  if (at != text.size()) return std::nullopt;
  if (twelveHour) {
    if (c.hour < 1 || c.hour > 12) return std::nullopt;
    c.hour %= 12;
  }
  if (sawAmPm && pm && c.hour < 12) c.hour += 12;
  if (c.month < 1 || c.month > 12 || c.day < 1 || c.day > CivilTime::daysInMonth(c.year, c.month) ||
      c.hour > 23 || c.minute > 59 || c.second > 60) {
    return std::nullopt;
  }
  const int64_t wall = c.toSeconds();
  const int64_t utc = offset ? wall - *offset : zone.instantForWallClock(wall);
  return static_cast<double>(utc) + fraction;
}

}  // namespace vexa
