// Arbitrary prefs.js text: every preference read has a name, and every string value read back
// through the parser as a statement of its own gives the same value.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "monitors/BrowserPreferences.h"

namespace {

// A string literal for `text` using only the escapes the parser reads.
std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (c == '\n') {
      out += "\\n";
    } else {
      out += c;
    }
  }
  return out + "\"";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const auto& [name, value] : vexa::BrowserPreferences::firefoxPrefs(text)) {
    const auto* string = std::get_if<std::string>(&value);
    if (!string || string->find('\0') != std::string::npos) continue;
    const auto again =
        vexa::BrowserPreferences::firefoxPrefs("user_pref(\"k\", " + quoted(*string) + ");");
    auto it = again.find("k");
    if (it == again.end() || std::get<std::string>(it->second) != *string) std::abort();
  }
  return 0;
}
