#pragma once

#include <string>
#include <string_view>

namespace vexa {

// Turns the bytes a clipboard owner sent as UTF-8 text into text that is UTF-8: owners that
// label Latin-1 or binary data as UTF-8 exist, and the library's strings must stay valid.
class PasteboardText {
 public:
  // `bytes` with every byte that does not belong to a well-formed UTF-8 sequence (stray
  // continuation bytes, truncated or overlong sequences, surrogates, values past U+10FFFF)
  // replaced by U+FFFD, and NULs dropped.
  static std::string repaired(std::string_view bytes);
};

}  // namespace vexa
