#pragma once

#include <optional>
#include <span>
#include <string>

#include <nlohmann/json.hpp>

namespace vexa {

// Property lists (XML or binary) as JSON values: dictionaries become objects, arrays arrays,
// strings strings, integers and reals numbers, booleans booleans, dates seconds since 1970
// (a number), data binary values, and keyed-archive ids {"CF$UID": n}. Strings that are not
// UTF-8 are kept as binary values; such keys have their odd bytes replaced by U+FFFD.
class PropertyList {
 public:
  // Empty when the bytes are neither form or are larger than 4 GiB.
  static std::optional<nlohmann::json> parse(std::span<const uint8_t> bytes);
  static std::optional<nlohmann::json> parse(const std::string& bytes);
  // The value as a binary property list. Null values are left out of their container; empty
  // when the value itself is null.
  static std::optional<std::string> toBinary(const nlohmann::json& value);
};

}  // namespace vexa
