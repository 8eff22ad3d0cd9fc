#pragma once

#include <cstdint>
#include <optional>

namespace vexa {

// Calendar components of a repeat interval; each may be left undefined.
struct DateComponents {
  std::optional<int64_t> weekday;
  std::optional<int64_t> day;
  std::optional<int64_t> hour;
  std::optional<int64_t> minute;
  std::optional<int64_t> second;
};

}  // namespace vexa
