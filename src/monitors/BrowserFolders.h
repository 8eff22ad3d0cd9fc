#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexa {

// Where each browser saves its downloads, read from the browser's own settings.
//
// A browser has an entry while its settings file exists: "Safari" (its plist in the preferences
// folder; no such browser on Linux), "Chrome" and "Chromium" (the last used profile's
// Preferences, JSON), "Firefox" (prefs.js of the profile profiles.ini starts) and "Opera"
// (Preferences, JSON). An absent or unusable setting (unreadable file, not a string, relative,
// not UTF-8) means the user's Downloads folder. Reads the disk on every call; never blocks on a
// pipe planted under a settings file's name.
class BrowserFolders {
 public:
  // The folders the table depends on; the environment's own unless a test points elsewhere.
  struct Locations {
    std::string home;
    std::string configHome;         // $XDG_CONFIG_HOME
    std::string preferencesFolder;  // where Safari's plist would be
    std::string downloads;          // the user's Downloads folder
    std::string desktop;            // the user's Desktop folder
  };

  static Locations current();

  explicit BrowserFolders(Locations locations) : at_(std::move(locations)) {}

  const Locations& locations() const { return at_; }

  // Browser name -> download folder, for the browsers whose settings file exists.
  std::map<std::string, std::string> read() const;
  // The files whose change can change the table (existing or not): settings files and the files
  // that choose a profile.
  std::vector<std::string> settingsFiles() const;
  // Whether a file of this name can be one of settingsFiles(), wherever it lies: a test of the
  // name alone, for a caller that must not read the disk.
  static bool isSettingsName(std::string_view name);
  // The folders holding those files, sorted, each once. A missing one inside the home folder is
  // replaced by its nearest existing ancestor there, whose changes tell of its making (a
  // browser's first run); a missing one outside is left out.
  std::vector<std::string> settingsFolders() const;
  // The same for a list of settings files already read (file-system queries only).
  std::vector<std::string> settingsFolders(const std::vector<std::string>& files) const;

 private:
  struct Browser {
    std::string name;
    std::string settingsFile;           // the file whose existence makes the entry
    std::vector<std::string> choosers;  // files that pick the profile
  };
  std::vector<Browser> browsers() const;
  std::optional<std::string> folderSetting(const Browser& browser) const;
  // An absolute folder from a setting: "~/" expanded; empty when unusable.
  std::optional<std::string> usable(const std::optional<std::string>& value) const;
  std::string chromiumProfile(const std::string& root) const;
  std::optional<std::string> firefoxProfile(std::string* profilesIni) const;

  Locations at_;
};

}  // namespace vexa
