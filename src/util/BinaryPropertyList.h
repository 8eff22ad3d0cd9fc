#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include <nlohmann/json.hpp>

namespace vexa {

// Reads the binary property-list format ("bplist00") into the JSON form PropertyList answers.
// Written for hostile input (an Info.plist inside a downloaded bundle): every offset and count
// is checked, cycles and nesting deeper than 512 are refused, and so is a document that would
// expand (through shared objects) to more than a million values. Text is UTF-8; NUL characters
// and malformed UTF-16 become U+FFFD.
class BinaryPropertyList {
 public:
  static std::optional<nlohmann::json> parse(std::span<const uint8_t> bytes);
};

}  // namespace vexa
