#pragma once

#include <cstdint>
#include <string>

#include "vexa/util/MonitorString.h"

namespace vexa {

// UTF-8 encoding of code points, for readers of formats that escape them, and the check of text
// that goes into a dictionary.
class Utf8 {
 public:
  // Whether `text` is UTF-8 with no NUL character: what a dictionary's string or key can hold
  // (the JSON form refuses anything else).
  static bool isText(const std::string& text) {
    return text.find('\0') == std::string::npos &&
           MonitorString::cstringToString(text.c_str()).has_value();
  }

  // Appends `c` as UTF-8. NUL, surrogates and values past U+10FFFF become U+FFFD.
  static void append(std::string& out, uint32_t c) {
    if (c == 0 || (c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) {
      out += "\xef\xbf\xbd";
    } else if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
};

}  // namespace vexa
