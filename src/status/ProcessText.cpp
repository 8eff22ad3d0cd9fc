#include "status/ProcessText.h"

#include <charconv>

namespace vexa::process_text {

std::optional<int64_t> stateCode(std::string_view stat) {
  if (stat.empty()) return std::nullopt;
  if (stat == "R") return 1;
  if (stat == "SX") return 2;
  if (stat == "RX") return 3;
  return 0;
}

std::optional<int64_t> wholeNumber(std::string_view digits) {
  int64_t value = 0;
  const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (ec != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return value;
}

double decimalNumber(std::string_view text) {
  double value = 0;
  // from_chars reads the C locale's form whatever the process's locale is.
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  (void)end;
  return ec == std::errc() ? value : 0.0;
}

}  // namespace vexa::process_text
