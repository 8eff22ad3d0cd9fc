#include "util/PropertyList.h"

#include <plist/plist.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "util/BinaryPropertyList.h"

namespace vexa {

using nlohmann::json;

namespace {

// Seconds between 1970-01-01 and 2001-01-01, the property-list epoch.
constexpr double kEpoch2001 = 978307200.0;
constexpr int kMaxDepth = 512;  // deeper documents are refused rather than overflowing the stack

struct PlistFree {
  void operator()(plist_t p) const { plist_free(p); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

std::string takeString(char* s) {
  std::string out = s ? s : "";
  std::free(s);
  return out;
}

// Keys must be UTF-8 to be JSON text (and to be written back as they were); bytes that are not
// become U+FFFD.
std::string utf8Key(std::string key) {
  try {
    (void)json(key).dump();
    return key;
  } catch (const json::exception&) {
    return json::parse(json(key).dump(-1, ' ', false, json::error_handler_t::replace))
        .get<std::string>();
  }
}

std::optional<json> toJson(plist_t node, int depth) {
  if (depth > kMaxDepth) return std::nullopt;
  switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
      json out = json::object();
      plist_dict_iter it = nullptr;
      plist_dict_new_iter(node, &it);
      for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, it, &key, &value);
        if (!value) {
          std::free(key);
          break;
        }
        std::string name = utf8Key(takeString(key));
        auto converted = toJson(value, depth + 1);
        if (!converted) {
          std::free(it);
          return std::nullopt;
        }
        out[name] = std::move(*converted);
      }
      std::free(it);
      return out;
    }
    case PLIST_ARRAY: {
      json out = json::array();
      const uint32_t n = plist_array_get_size(node);
      for (uint32_t i = 0; i < n; ++i) {
        auto converted = toJson(plist_array_get_item(node, i), depth + 1);
        if (!converted) return std::nullopt;
        out.push_back(std::move(*converted));
      }
      return out;
    }
    case PLIST_STRING: {
      uint64_t length = 0;
      const char* s = plist_get_string_ptr(node, &length);
      std::string text(s ? s : "", s ? length : 0);
      // JSON text must be UTF-8; a string that is not is kept as bytes.
      try {
        (void)json(text).dump();
        return json(std::move(text));
      } catch (const json::exception&) {
        return json::binary(std::vector<uint8_t>(text.begin(), text.end()));
      }
    }
    case PLIST_BOOLEAN: {
      uint8_t b = 0;
      plist_get_bool_val(node, &b);
      return json(b != 0);
    }
    case PLIST_UINT: {
      // Integers are stored unsigned; values past the signed range were written negative.
      uint64_t v = 0;
      plist_get_uint_val(node, &v);
      if (v > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
        return json(static_cast<int64_t>(v));
      return json(v);
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(node, &d);
      return json(d);
    }
    case PLIST_DATE: {
      int32_t sec = 0, usec = 0;
      plist_get_date_val(node, &sec, &usec);
      return json(kEpoch2001 + sec + usec / 1e6);
    }
    case PLIST_DATA: {
      char* data = nullptr;
      uint64_t length = 0;
      plist_get_data_val(node, &data, &length);
      std::vector<uint8_t> bytes(reinterpret_cast<uint8_t*>(data),
                                 reinterpret_cast<uint8_t*>(data) + (data ? length : 0));
      std::free(data);
      return json::binary(std::move(bytes));
    }
    case PLIST_UID: {
      uint64_t v = 0;
      plist_get_uid_val(node, &v);
      return json{{"CF$UID", static_cast<int64_t>(v)}};
    }
    default:
      return std::nullopt;
  }
}

plist_t fromJson(const json& value, int depth) {
  if (depth > kMaxDepth) return nullptr;
  switch (value.type()) {
    case json::value_t::object: {
      plist_t dict = plist_new_dict();
      for (const auto& [key, item] : value.items()) {
        if (item.is_null()) continue;
        plist_t child = fromJson(item, depth + 1);
        if (!child) {
          plist_free(dict);
          return nullptr;
        }
        plist_dict_set_item(dict, key.c_str(), child);
      }
      return dict;
    }
    case json::value_t::array: {
      plist_t array = plist_new_array();
      for (const auto& item : value) {
        if (item.is_null()) continue;
        plist_t child = fromJson(item, depth + 1);
        if (!child) {
          plist_free(array);
          return nullptr;
        }
        plist_array_append_item(array, child);
      }
      return array;
    }
    case json::value_t::string:
      return plist_new_string(value.get_ref<const std::string&>().c_str());
    case json::value_t::boolean:
      return plist_new_bool(value.get<bool>() ? 1 : 0);
    case json::value_t::number_integer:
      return plist_new_uint(static_cast<uint64_t>(value.get<int64_t>()));
    case json::value_t::number_unsigned:
      return plist_new_uint(value.get<uint64_t>());
    case json::value_t::number_float:
      return plist_new_real(value.get<double>());
    case json::value_t::binary: {
      const auto& bytes = value.get_binary();
      return plist_new_data(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    default:
      return nullptr;
  }
}

}  // namespace

std::optional<json> PropertyList::parse(std::span<const uint8_t> bytes) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<uint32_t>::max()) return std::nullopt;
  // The binary form is read by our own reader: libplist aborts on some malformed strings.
  if (bytes.size() >= 6 && std::memcmp(bytes.data(), "bplist", 6) == 0) {
    return BinaryPropertyList::parse(bytes);
  }
  // XML text never holds a NUL byte; libplist would keep one inside a key and then abort.
  if (std::memchr(bytes.data(), 0, bytes.size()) != nullptr) return std::nullopt;
  plist_t root = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(bytes.data()),
                    static_cast<uint32_t>(bytes.size()), &root);
  if (!root) return std::nullopt;
  PlistPtr owner(root);
  return toJson(root, 0);
}

std::optional<json> PropertyList::parse(const std::string& bytes) {
  return parse(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
}

std::optional<std::string> PropertyList::toBinary(const json& value) {
  PlistPtr root(fromJson(value, 0));
  if (!root) return std::nullopt;
  char* out = nullptr;
  uint32_t length = 0;
  plist_to_bin(root.get(), &out, &length);
  if (!out) return std::nullopt;
  std::string bytes(out, length);
  plist_to_bin_free(out);
  return bytes;
}

}  // namespace vexa
