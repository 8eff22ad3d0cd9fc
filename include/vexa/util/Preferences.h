#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"

namespace vexa {

// Per-application preferences: integer and string-list values in one small JSON file,
// $XDG_CONFIG_HOME/<application name>/preferences.json for the standard store.
//
// Every change rewrites the file atomically (a temporary file renamed over it), so a crash
// leaves the old values or the new ones. A missing, unreadable or corrupt file reads as empty and
// is replaced by the next change. Values written by another process are picked up on the next
// read. Safe from any thread.
class VEXA_EXPORT Preferences {
 public:
  // The store of the running application (AppIdentity::name()), located when first used.
  static Preferences& standard();

  explicit Preferences(std::string filePath);
  Preferences(const Preferences&) = delete;
  Preferences& operator=(const Preferences&) = delete;

  const std::string& filePath() const { return path_; }

  // 0 when the key is missing or does not hold an integer.
  int64_t integerForKey(const std::string& key);
  bool setInteger(const std::string& key, int64_t value);

  // Empty when the key is missing or does not hold a list of strings. "AppleLanguages" falls back
  // to the user's languages from the environment (preferredLanguages) when not stored.
  std::optional<std::vector<std::string>> stringArrayForKey(const std::string& key);
  bool setStringArray(const std::string& key, const std::vector<std::string>& value);

  bool removeObjectForKey(const std::string& key);

  // The user's languages, most preferred first: LANGUAGE's list, else the language of LC_ALL,
  // LC_MESSAGES or LANG ("de_DE.UTF-8" gives "de-DE"); ["en"] when nothing is set or it is C.
  static std::vector<std::string> preferredLanguages();

 private:
  void reloadLocked();
  bool storeLocked();

  const std::string path_;
  std::mutex mutex_;
  nlohmann::json values_ = nlohmann::json::object();
  // Identity of the file last read, to notice another writer.
  struct Stamp {
    uint64_t device = 0, inode = 0, size = 0;
    int64_t mtimeNs = 0;
    bool operator==(const Stamp&) const = default;
  };
  std::optional<Stamp> stamp_;
};

}  // namespace vexa
