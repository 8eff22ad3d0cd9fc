#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "util/TimeZone.h"

namespace vexa {

// Date patterns in the usual field-letter notation: y yy yyyy, M MM MMM MMMM, d dd, H HH, h hh,
// m mm, s ss, S... (fraction), a, E EEE EEEE, Z ZZ ZZZ (+0800), ZZZZZ (+08:00); text in single
// quotes is literal and '' is a quote. Other letters are kept as they are. Names are English.
class DateFormat {
 public:
  static std::string format(double secondsSince1970, std::string_view pattern,
                            const TimeZone& zone);
  // The whole text must match the pattern. Fields the pattern lacks default to
  // 1970-01-01 00:00:00; a parsed zone offset wins over `zone`. Empty when the text does not
  // match or a field is out of range.
  static std::optional<double> parse(std::string_view text, std::string_view pattern,
                                     const TimeZone& zone);
};

}  // namespace vexa
