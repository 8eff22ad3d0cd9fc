#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Reading the columns of process-status text: the numbers the sampling patterns capture.
namespace vexa::process_text {

// The state code of a ps "stat" text compared as a whole: "R" 1, "SX" 2, "RX" 3, any other
// text 0; nothing for an empty text (which leaves a record's code as it was).
std::optional<int64_t> stateCode(std::string_view stat);

// A captured decimal integer; nothing when it does not fit.
std::optional<int64_t> wholeNumber(std::string_view digits);
// A captured "digits, any one character, digits" number as a double: the part a decimal
// number reads (so "1,5" gives 1), 0 when none.
double decimalNumber(std::string_view text);

}  // namespace vexa::process_text
