#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace vexa {

// Readers of the browsers' own settings files, as pure functions of their text. None of them
// throws; text they cannot read answers as if the setting were absent.
class BrowserPreferences {
 public:
  // A Firefox preference value: prefs.js holds strings, integers and booleans.
  using PrefValue = std::variant<std::string, int64_t, bool>;
  struct FirefoxProfile {
    std::string path;  // as written in profiles.ini
    bool isRelative = true;
    bool operator==(const FirefoxProfile&) const = default;
  };

  // The string at `download.default_directory` of a Chromium-family "Preferences" file (JSON).
  // Empty when the text is not JSON, or the value is missing or not a string. Of duplicate keys
  // the last one counts, as the browser reads them.
  static std::optional<std::string> chromeDownloadDirectory(std::string_view json);
  // The profile folder name at `profile.last_used` of a Chromium-family "Local State" file.
  static std::optional<std::string> chromeLastUsedProfile(std::string_view json);

  // The profile a Firefox profiles.ini starts: the first `[Install…]` section's Default=, else
  // the `[Profile…]` section marked Default=1, else the first `[Profile…]` section with a Path.
  static std::optional<FirefoxProfile> firefoxProfile(std::string_view ini);

  // The preferences a prefs.js (or user.js) sets: `user_pref("name", value);` and its siblings
  // `pref` and `sticky_pref`, with // and /* */ and # comments. A later setting of a name
  // replaces an earlier one. A statement that does not parse is skipped up to the next ';'.
  static std::map<std::string, PrefValue> firefoxPrefs(std::string_view text);

 private:
  static std::optional<std::string> jsonStringAt(std::string_view json, const char* object,
                                                 const char* key);
};

}  // namespace vexa
