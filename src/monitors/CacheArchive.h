#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace vexa {

// The form of the monitors' cache files: a binary property list, gzip-compressed.
class CacheArchive {
 public:
  // The file's bytes for `root`; empty when it cannot be encoded or the result exceeds `limit`.
  static std::optional<std::string> pack(const nlohmann::json& root, std::size_t limit);
  // The root object of a cache file's bytes; empty when the bytes (or their inflated form)
  // exceed `limit` or are not such a file.
  static std::optional<nlohmann::json> unpack(std::string_view bytes, std::size_t limit);
};

}  // namespace vexa
