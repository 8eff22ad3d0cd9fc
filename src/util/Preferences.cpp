#include "vexa/util/Preferences.h"

#include <sys/stat.h>

#include <cstdlib>

#include "util/AtomicFile.h"
#include "util/XdgDirs.h"
#include "vexa/util/AppIdentity.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

Preferences& Preferences::standard() {
  static Preferences* store = [] {
    const std::string folder = XdgDirs::configHome() + "/" + AppIdentity::name();
    return new Preferences(folder + "/preferences.json");
  }();
  return *store;
}

Preferences::Preferences(std::string filePath) : path_(std::move(filePath)) {}

void Preferences::reloadLocked() {
  struct stat st {};
  if (::stat(path_.c_str(), &st) != 0) {
    values_ = nlohmann::json::object();
    stamp_.reset();
    return;
  }
  const Stamp now{static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino),
                  static_cast<uint64_t>(st.st_size),
                  static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
  if (stamp_ && *stamp_ == now) return;
  stamp_ = now;
  values_ = nlohmann::json::object();
  auto text = AtomicFile::read(path_, 4 << 20);
  if (!text) return;
  nlohmann::json parsed = nlohmann::json::parse(*text, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_object()) values_ = std::move(parsed);
}

bool Preferences::storeLocked() {
  const size_t slash = path_.rfind('/');
  if (slash != std::string::npos && slash > 0)
    AtomicFile::createFolders(path_.substr(0, slash), 0700);
  if (auto ec = AtomicFile::write(path_, values_.dump(2) + "\n", 0600)) {
    SystemLog::log("cannot write preferences %s: %s", path_.c_str(), ec.message().c_str());
    return false;
  }
  stamp_.reset();  // the next read takes the new file's identity
  return true;
}

int64_t Preferences::integerForKey(const std::string& key) {
  std::lock_guard lock(mutex_);
  reloadLocked();
  auto it = values_.find(key);
  if (it == values_.end()) return 0;
  if (it->is_number_integer()) return it->get<int64_t>();
  if (it->is_number_unsigned()) return static_cast<int64_t>(it->get<uint64_t>());
  return 0;
}

bool Preferences::setInteger(const std::string& key, int64_t value) {
  std::lock_guard lock(mutex_);
  reloadLocked();
  values_[key] = value;
  return storeLocked();
}

std::optional<std::vector<std::string>> Preferences::stringArrayForKey(const std::string& key) {
  std::lock_guard lock(mutex_);
  reloadLocked();
  auto it = values_.find(key);
  if (it != values_.end() && it->is_array()) {
    std::vector<std::string> list;
    for (const auto& item : *it) {
      if (!item.is_string()) return std::nullopt;
      list.push_back(item.get<std::string>());
    }
    return list;
  }
  if (it == values_.end() && key == "AppleLanguages") return preferredLanguages();
  return std::nullopt;
}

bool Preferences::setStringArray(const std::string& key, const std::vector<std::string>& value) {
  std::lock_guard lock(mutex_);
  reloadLocked();
  values_[key] = value;
  return storeLocked();
}

bool Preferences::removeObjectForKey(const std::string& key) {
  std::lock_guard lock(mutex_);
  reloadLocked();
  if (values_.erase(key) == 0) return true;
  return storeLocked();
}

std::vector<std::string> Preferences::preferredLanguages() {
  auto tag = [](std::string locale) -> std::string {
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX") return "";
    for (char& c : locale) {
      if (c == '_') c = '-';
    }
    return locale;
  };
  std::vector<std::string> languages;
  // LANGUAGE is honoured only with a real locale, as gettext does.
  const char* language = std::getenv("LANGUAGE");
  std::string primary;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (value && *value) {
      primary = tag(value);
      break;
    }
  }
  if (language && *language && !primary.empty()) {
    std::string list = language;
    size_t start = 0;
    while (start <= list.size()) {
      size_t end = list.find(':', start);
      if (end == std::string::npos) end = list.size();
      std::string item = tag(list.substr(start, end - start));
      if (!item.empty()) languages.push_back(item);
      start = end + 1;
    }
  }
  if (languages.empty() && !primary.empty()) languages.push_back(primary);
  if (languages.empty()) languages.push_back("en");
  return languages;
}

}  // namespace vexa
