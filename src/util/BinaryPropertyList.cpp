#include "util/BinaryPropertyList.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "util/Utf8.h"

namespace vexa {

using nlohmann::json;

namespace {

constexpr double kEpoch2001 = 978307200.0;
constexpr int kMaxDepth = 512;
constexpr uint64_t kMaxValues = 1'000'000;

class Reader {
 public:
  explicit Reader(std::span<const uint8_t> b) : b_(b) {}

  std::optional<json> read() {
    if (b_.size() < 8 + 32 || std::memcmp(b_.data(), "bplist00", 8) != 0) return std::nullopt;
    const uint8_t* trailer = b_.data() + b_.size() - 32;
    offsetSize_ = trailer[6];
    refSize_ = trailer[7];
    objects_ = be(trailer + 8, 8);
    const uint64_t top = be(trailer + 16, 8);
    tableStart_ = be(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || refSize_ < 1 || refSize_ > 8) return std::nullopt;
    if (objects_ == 0 || top >= objects_ || tableStart_ < 8 || tableStart_ > b_.size() - 32 ||
        objects_ > (b_.size() - 32 - tableStart_) / offsetSize_) {
      return std::nullopt;
    }
    onPath_.assign(objects_, false);
    return object(top, 0);
  }

 private:
  static uint64_t be(const uint8_t* p, size_t n) {
    uint64_t v = 0;
    for (size_t i = 0; i < n; ++i) v = (v << 8) | p[i];
    return v;
  }
  // n bytes at `at`, when they lie before the offset table.
  const uint8_t* bytes(uint64_t at, uint64_t n) const {
    if (at < 8 || at > tableStart_ || n > tableStart_ - at) return nullptr;
    return b_.data() + at;
  }

  // The length in a marker's low nibble, or the integer object after it for 0xF.
  std::optional<uint64_t> length(uint8_t marker, uint64_t& at) const {
    const uint64_t nibble = marker & 0x0F;
    if (nibble != 0x0F) return nibble;
    const uint8_t* intMarker = bytes(at, 1);
    if (!intMarker || (*intMarker & 0xF0) != 0x10) return std::nullopt;
    const uint64_t size = uint64_t{1} << (*intMarker & 0x0F);
    if (size > 8) return std::nullopt;
    const uint8_t* p = bytes(at + 1, size);
    if (!p) return std::nullopt;
    at += 1 + size;
    return be(p, size);
  }

  std::optional<json> object(uint64_t index, int depth) {
    if (index >= objects_ || depth > kMaxDepth || onPath_[index] || ++values_ > kMaxValues) {
      return std::nullopt;
    }
    const uint64_t at0 = be(b_.data() + tableStart_ + index * offsetSize_, offsetSize_);
    const uint8_t* markerByte = bytes(at0, 1);
    if (!markerByte) return std::nullopt;
    const uint8_t marker = *markerByte;
    uint64_t at = at0 + 1;
    switch (marker >> 4) {
      case 0x0:
        if (marker == 0x08) return json(false);
        if (marker == 0x09) return json(true);
        return std::nullopt;  // null and fill have no JSON form here
      case 0x1: {
        const uint64_t size = uint64_t{1} << (marker & 0x0F);
        if (size > 16) return std::nullopt;
        const uint8_t* p = bytes(at, size);
        if (!p) return std::nullopt;
        if (size == 16) return json(static_cast<int64_t>(be(p + 8, 8)));  // the low half
        const uint64_t v = be(p, size);
        if (size == 8) return json(static_cast<int64_t>(v));  // 8-byte integers are signed
        return json(v);
      }
      case 0x2: {
        const uint64_t size = uint64_t{1} << (marker & 0x0F);
        const uint8_t* p = bytes(at, size);
        if (!p) return std::nullopt;
        if (size == 4) {
          const uint32_t raw = static_cast<uint32_t>(be(p, 4));
          float f;
          std::memcpy(&f, &raw, 4);
          return json(static_cast<double>(f));
        }
        if (size != 8) return std::nullopt;
        const uint64_t raw = be(p, 8);
        double d;
        std::memcpy(&d, &raw, 8);
        return json(d);
      }
      case 0x3: {
        const uint8_t* p = bytes(at, 8);
        if (marker != 0x33 || !p) return std::nullopt;
        const uint64_t raw = be(p, 8);
        double d;
        std::memcpy(&d, &raw, 8);
        return json(kEpoch2001 + d);
      }
      case 0x4: {
        auto n = length(marker, at);
        const uint8_t* p = n ? bytes(at, *n) : nullptr;
        if (!p) return std::nullopt;
        return json::binary(std::vector<uint8_t>(p, p + *n));
      }
      case 0x5: {  // ASCII: bytes past 0x7F are taken as Latin-1
        auto n = length(marker, at);
        const uint8_t* p = n ? bytes(at, *n) : nullptr;
        if (!p) return std::nullopt;
        std::string out;
        for (uint64_t i = 0; i < *n; ++i) Utf8::append(out, p[i]);
        return json(std::move(out));
      }
      case 0x6: {  // UTF-16, big-endian
        auto n = length(marker, at);
        if (!n || *n > (uint64_t{1} << 62)) return std::nullopt;
        const uint8_t* p = bytes(at, *n * 2);
        if (!p) return std::nullopt;
        std::string out;
        for (uint64_t i = 0; i < *n; ++i) {
          uint32_t c = static_cast<uint32_t>(be(p + 2 * i, 2));
          if (c >= 0xD800 && c <= 0xDBFF && i + 1 < *n) {
            const uint32_t low = static_cast<uint32_t>(be(p + 2 * (i + 1), 2));
            if (low >= 0xDC00 && low <= 0xDFFF) {
              c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
              ++i;
            }
          }
          Utf8::append(out, c);
        }
        return json(std::move(out));
      }
      case 0x8: {
        const uint64_t size = (marker & 0x0F) + 1u;
        const uint8_t* p = bytes(at, size);
        if (!p || size > 8) return std::nullopt;
        return json{{"CF$UID", static_cast<int64_t>(be(p, size))}};
      }
      case 0xA:
      case 0xC:
      case 0xD: {
        auto n = length(marker, at);
        const uint64_t refs = (marker >> 4) == 0xD ? 2 : 1;
        if (!n || *n > tableStart_) return std::nullopt;  // each reference takes a byte at least
        const uint8_t* p = bytes(at, *n * refs * refSize_);
        if (!p) return std::nullopt;
        onPath_[index] = true;
        std::optional<json> out =
            (marker >> 4) == 0xD ? dictionary(p, *n, depth) : array(p, *n, depth);
        onPath_[index] = false;
        return out;
      }
      default:
        return std::nullopt;
    }
  }

  std::optional<json> array(const uint8_t* refs, uint64_t n, int depth) {
    json out = json::array();
    for (uint64_t i = 0; i < n; ++i) {
      auto item = object(be(refs + i * refSize_, refSize_), depth + 1);
      if (!item) return std::nullopt;
      out.push_back(std::move(*item));
    }
    return out;
  }

  std::optional<json> dictionary(const uint8_t* refs, uint64_t n, int depth) {
    json out = json::object();
    for (uint64_t i = 0; i < n; ++i) {
      auto key = object(be(refs + i * refSize_, refSize_), depth + 1);
      auto value = object(be(refs + (n + i) * refSize_, refSize_), depth + 1);
      if (!key || !key->is_string() || !value) return std::nullopt;
      out[key->get<std::string>()] = std::move(*value);
    }
    return out;
  }

  std::span<const uint8_t> b_;
  size_t offsetSize_ = 0, refSize_ = 0;
  uint64_t objects_ = 0, tableStart_ = 0, values_ = 0;
  std::vector<bool> onPath_;  // objects being read, to refuse cycles
};

}  // namespace

std::optional<json> BinaryPropertyList::parse(std::span<const uint8_t> bytes) {
  return Reader(bytes).read();
}

}  // namespace vexa
