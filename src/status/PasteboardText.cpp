#include "status/PasteboardText.h"

#include <cstdint>

namespace vexa {

namespace {

constexpr std::string_view kReplacement = "\xef\xbf\xbd";

// The length of the well-formed sequence starting at `at`, or 0.
size_t sequenceLength(std::string_view s, size_t at) {
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(s[i]); };
  const uint8_t lead = byte(at);
  if (lead < 0x80) return 1;
  size_t length = 0;
  // The allowed range of the second byte narrows for E0, ED, F0 and F4: that excludes overlong
  // forms, surrogates and values past U+10FFFF.
  uint8_t low = 0x80, high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (at + length > s.size()) return 0;
  if (byte(at + 1) < low || byte(at + 1) > high) return 0;
  for (size_t i = 2; i < length; ++i) {
    if (byte(at + i) < 0x80 || byte(at + i) > 0xBF) return 0;
  }
  return length;
}

}  // namespace

std::string PasteboardText::repaired(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (size_t at = 0; at < bytes.size();) {
    if (bytes[at] == '\0') {
      ++at;
      continue;
    }
    const size_t length = sequenceLength(bytes, at);
    if (length == 0) {
      text += kReplacement;
      ++at;
    } else {
      text.append(bytes.substr(at, length));
      at += length;
    }
  }
  return text;
}

}  // namespace vexa
