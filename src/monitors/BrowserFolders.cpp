#include "monitors/BrowserFolders.h"

#include <set>
#include <variant>

#include "monitors/BrowserPreferences.h"
#include "util/AtomicFile.h"
#include "util/PathName.h"
#include "util/PropertyList.h"
#include "util/XdgDirs.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

namespace {

// Settings files of a few megabytes are normal; anything far larger is not one.
constexpr size_t kSettingsLimit = size_t{64} << 20;
// Longer settings are not folders anyone chose.
constexpr size_t kPathLimit = 4096;

// The names of the files the table is read from.
constexpr char kChromiumSettings[] = "Preferences";  // Chrome, Chromium, Opera
constexpr char kChromiumProfileChooser[] = "Local State";
constexpr char kFirefoxSettings[] = "prefs.js";
constexpr char kFirefoxProfileChooser[] = "profiles.ini";
constexpr char kSafariSettings[] = "com.apple.Safari.plist";

std::optional<std::string> readSettings(const std::string& file) {
  return AtomicFile::read(file, kSettingsLimit);
}

// A single folder name: no separators, not "." or "..".
bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

// A relative path inside its folder: no absolute path, no ".." component.
bool staysInside(const std::string& path) {
  if (path.empty() || path[0] == '/' || path.find('\0') != std::string::npos) return false;
  size_t start = 0;
  for (;;) {
    const size_t end = path.find('/', start);
    if (path.compare(start, end == std::string::npos ? std::string::npos : end - start, "..") ==
        0) {
      return false;
    }
    if (end == std::string::npos) return true;
    start = end + 1;
  }
}

}  // namespace

BrowserFolders::Locations BrowserFolders::current() {
  return {MonitorString::userHomePath(), XdgDirs::configHome(),
          MonitorString::userPreferencesPath().value_or(""),
          MonitorString::userDownlodsPath().value_or(MonitorString::userHomePath() + "/Downloads"),
          MonitorString::userDeskTopPath().value_or(MonitorString::userHomePath() + "/Desktop")};
}

std::string BrowserFolders::chromiumProfile(const std::string& root) const {
  if (auto state = readSettings(root + "/" + kChromiumProfileChooser)) {
    auto last = BrowserPreferences::chromeLastUsedProfile(*state);
    if (last && isPlainName(*last) && PathName::isFolder(root + "/" + *last)) {
      return root + "/" + *last;
    }
  }
  return root + "/Default";
}

std::optional<std::string> BrowserFolders::firefoxProfile(std::string* profilesIni) const {
  for (const char* root : {"/.mozilla/firefox", "/snap/firefox/common/.mozilla/firefox",
                           "/.var/app/org.mozilla.firefox/.mozilla/firefox"}) {
    const std::string folder = at_.home + root;
    const std::string ini = folder + "/" + kFirefoxProfileChooser;
    if (!PathName::exists(ini)) continue;
    *profilesIni = ini;
    auto text = readSettings(ini);
    auto profile = text ? BrowserPreferences::firefoxProfile(*text) : std::nullopt;
    if (!profile) return std::nullopt;
    if (profile->isRelative || profile->path[0] != '/') {
      if (!staysInside(profile->path)) return std::nullopt;
      return folder + "/" + profile->path;
    }
    return profile->path;
  }
  return std::nullopt;
}

std::vector<BrowserFolders::Browser> BrowserFolders::browsers() const {
  std::vector<Browser> list;
  list.push_back({"Safari", at_.preferencesFolder + "/" + kSafariSettings, {}});
  for (const auto& [name, folder] :
       {std::pair{"Chrome", "google-chrome"}, std::pair{"Chromium", "chromium"}}) {
    const std::string root = at_.configHome + "/" + folder;
    list.push_back(
        {name,
         chromiumProfile(root) + "/" + kChromiumSettings,
         {root + "/" + kChromiumProfileChooser, root + "/Default/" + kChromiumSettings}});
  }
  std::string profilesIni;
  auto profile = firefoxProfile(&profilesIni);
  Browser firefox{"Firefox", profile ? *profile + "/" + kFirefoxSettings : "", {}};
  for (const char* root : {"/.mozilla/firefox", "/snap/firefox/common/.mozilla/firefox",
                           "/.var/app/org.mozilla.firefox/.mozilla/firefox"}) {
    firefox.choosers.push_back(at_.home + root + "/" + kFirefoxProfileChooser);
  }
  list.push_back(std::move(firefox));
  const std::string opera = at_.configHome + "/opera";
  const std::string top = opera + "/" + kChromiumSettings;
  const std::string inProfile = opera + "/Default/" + kChromiumSettings;
  list.push_back({"Opera", PathName::exists(top) ? top : inProfile, {top, inProfile}});
  return list;
}

std::optional<std::string> BrowserFolders::usable(const std::optional<std::string>& value) const {
  if (!value || value->size() > kPathLimit || value->find('\0') != std::string::npos ||
      !MonitorString::cstringToString(value->c_str())) {
    return std::nullopt;
  }
  std::string folder = value->rfind("~/", 0) == 0 ? at_.home + value->substr(1) : *value;
  if (folder.empty() || folder[0] != '/') return std::nullopt;
  return PathName::withoutTrailingSlashes(folder);
}

std::optional<std::string> BrowserFolders::folderSetting(const Browser& browser) const {
  auto text = readSettings(browser.settingsFile);
  if (!text) return std::nullopt;
  if (browser.name == "Safari") {
    auto plist = PropertyList::parse(*text);
    if (!plist || !plist->is_object()) return std::nullopt;
    auto it = plist->find("DownloadsPath");
    if (it == plist->end() || !it->is_string()) return std::nullopt;
    return usable(it->get<std::string>());
  }
  if (browser.name != "Firefox") {
    return usable(BrowserPreferences::chromeDownloadDirectory(*text));
  }
  const auto prefs = BrowserPreferences::firefoxPrefs(*text);
  auto list = prefs.find("browser.download.folderList");
  const auto* kind = list == prefs.end() ? nullptr : std::get_if<int64_t>(&list->second);
  if (kind && *kind == 0) return at_.desktop;
  if (!kind || *kind != 2) return std::nullopt;
  auto dir = prefs.find("browser.download.dir");
  const auto* folder = dir == prefs.end() ? nullptr : std::get_if<std::string>(&dir->second);
  return usable(folder ? std::optional(*folder) : std::nullopt);
}

std::map<std::string, std::string> BrowserFolders::read() const {
  std::map<std::string, std::string> table;
  for (const auto& browser : browsers()) {
    if (browser.settingsFile.empty() || !PathName::exists(browser.settingsFile)) continue;
    table[browser.name] = folderSetting(browser).value_or(at_.downloads);
  }
  return table;
}

std::vector<std::string> BrowserFolders::settingsFiles() const {
  std::vector<std::string> files;
  for (auto& browser : browsers()) {
    if (!browser.settingsFile.empty()) files.push_back(browser.settingsFile);
    files.insert(files.end(), browser.choosers.begin(), browser.choosers.end());
  }
  return files;
}

bool BrowserFolders::isSettingsName(std::string_view name) {
  return name == kChromiumSettings || name == kChromiumProfileChooser || name == kFirefoxSettings ||
         name == kFirefoxProfileChooser || name == kSafariSettings;
}

std::vector<std::string> BrowserFolders::settingsFolders() const {
  return settingsFolders(settingsFiles());
}

std::vector<std::string> BrowserFolders::settingsFolders(
    const std::vector<std::string>& files) const {
  std::set<std::string> folders;
  for (const auto& file : files) {
    std::string folder = PathName::parent(file);
    // A location the environment does not give (an empty base) names no folder of its own.
    if (folder.empty() || folder[0] != '/' || folder == "/") continue;
    while (!PathName::isFolder(folder) && folder != at_.home &&
           PathName::isWithin(folder, at_.home)) {
      folder = PathName::parent(folder);
    }
    if (PathName::isFolder(folder)) folders.insert(folder);
  }
  return {folders.begin(), folders.end()};
}

}  // namespace vexa
