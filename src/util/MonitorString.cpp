#include "vexa/util/MonitorString.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "util/AtomicFile.h"
#include "util/HiddenList.h"
#include "util/PathName.h"
#include "util/UniqueFd.h"
#include "util/XdgDirs.h"
#include "vexa/util/AppIdentity.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

int componentAt(const std::string& version, size_t index) {
  size_t start = 0;
  for (size_t i = 0; i < index; ++i) {
    start = version.find('.', start);
    if (start == std::string::npos) return 0;
    ++start;
  }
  return std::atoi(version.c_str() + start);
}

char foldAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalAt(const std::string& s, size_t at, const std::string& needle, bool fold) {
  for (size_t k = 0; k < needle.size(); ++k) {
    char a = s[at + k], b = needle[k];
    if (fold) a = foldAscii(a), b = foldAscii(b);
    if (a != b) return false;
  }
  return true;
}

// The folder holding the path's last component, links followed: the caller acts with its own
// rights.
UniqueFd openParentFolder(const std::string& path) {
  return UniqueFd(::open(PathName::parent(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace

std::string MonitorString::platform() {
  struct utsname u {};
  if (::uname(&u) != 0) return "";
  return u.machine;
}

int MonitorString::platformFlag() { return platformFlag(platform()); }

int MonitorString::platformFlag(const std::string& processor) {
  std::string p;
  for (char c : processor) p += foldAscii(c);
  if (p == "i386") return 7;
  if (p == "x86_64") return 16777223;
  if (p == "ppc") return 18;
  if (p == "ppc64") return 16777234;
  return 0;
}

std::string MonitorString::osVersionFromRelease(const std::string& release) {
  int major = 0, minor = 0, bugfix = 0;
  const int got = std::sscanf(release.c_str(), "%d.%d.%d", &major, &minor, &bugfix);
  if (got < 1 || major < 0) {
    SystemLog::log("Unable to obtain system version: %ld", static_cast<long>(got));
    return "10.0";
  }
  std::string version = std::to_string(major) + "." + std::to_string(got >= 2 ? minor : 0) + "." +
                        std::to_string(got >= 3 ? bugfix : 0);
  while (version.size() > 2 && version.ends_with(".0")) version.resize(version.size() - 2);
  return version;
}

std::string MonitorString::osVersion() {
  struct utsname u {};
  if (::uname(&u) != 0) {
    SystemLog::log("Unable to obtain system version: %ld", static_cast<long>(errno));
    return "10.0";
  }
  return osVersionFromRelease(u.release);
}

int MonitorString::getMajarVersion(const std::string& version) { return componentAt(version, 0); }

int MonitorString::getMinorVersion(const std::string& version) { return componentAt(version, 1); }

int MonitorString::getBugFixVersion(const std::string& version) { return componentAt(version, 2); }

std::optional<std::string> MonitorString::cacheFolder() {
  auto support = userApplicationSupportPath();
  if (!support) return std::nullopt;
  const std::string folder = *support + "/" + AppIdentity::name();
  struct stat st {};
  if (::lstat(folder.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) ::unlink(folder.c_str());
  // Every missing level is made (the data home itself may not exist yet).
  if (!AtomicFile::createFolders(folder)) return std::nullopt;
  return folder;
}

std::string MonitorString::iosBackupFoloder() {
  return XdgDirs::home() + "/Library/Application Support/MobileSync/Backup";
}

std::string MonitorString::userHomePath() { return XdgDirs::home(); }

std::string MonitorString::tempPath() {
  const char* tmp = std::getenv("TMPDIR");
  return PathName::withoutTrailingSlashes(tmp && tmp[0] == '/' ? tmp : "/tmp");
}

std::optional<std::string> MonitorString::userDeskTopPath() { return XdgDirs::userDir("DESKTOP"); }

std::optional<std::string> MonitorString::userApplicationPath() {
  return XdgDirs::dataHome() + "/applications";
}

std::optional<std::string> MonitorString::applicationPath() {
  for (const std::string& dir : XdgDirs::dataDirs()) {
    struct stat st {};
    const std::string candidate = dir + "/applications";
    if (::stat(candidate.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return candidate;
  }
  return std::nullopt;
}

std::optional<std::string> MonitorString::userLibrary() { return XdgDirs::dataHome(); }

std::optional<std::string> MonitorString::userApplicationSupportPath() {
  return XdgDirs::dataHome();
}

std::optional<std::string> MonitorString::userMoviePath() { return XdgDirs::userDir("VIDEOS"); }

std::optional<std::string> MonitorString::userMusicPath() { return XdgDirs::userDir("MUSIC"); }

std::optional<std::string> MonitorString::userPicturePath() { return XdgDirs::userDir("PICTURES"); }

std::optional<std::string> MonitorString::userDownlodsPath() {
  return XdgDirs::userDir("DOWNLOAD");
}

std::optional<std::string> MonitorString::userDocumentPath() {
  return XdgDirs::userDir("DOCUMENTS");
}

std::optional<std::string> MonitorString::userTrashPath() {
  return XdgDirs::dataHome() + "/Trash/files";
}

std::optional<std::string> MonitorString::userPreferencesPath() {
  auto library = userLibrary();
  if (!library) return std::nullopt;
  return *library + "/Preferences";
}

std::string MonitorString::generateSolePath(const std::string& path) {
  // Taken names include dangling links: a new item must not land behind one.
  if (!PathName::entryExists(path)) return path;
  const std::string trimmed = PathName::withoutTrailingSlashes(path);
  const std::string name = PathName::lastComponent(trimmed);
  const std::string dir = trimmed.substr(0, trimmed.size() - name.size());  // keeps its "/"
  std::string base = name, extension;
  const size_t dot = name.rfind('.');
  if (dot != std::string::npos && dot > 0 && dot + 1 < name.size()) {
    base = name.substr(0, dot);
    extension = name.substr(dot + 1);
  }
  for (int n = 1;; ++n) {
    std::string candidate = dir + base + "(" + std::to_string(n) + ")";
    if (!extension.empty()) candidate += "." + extension;
    if (!PathName::entryExists(candidate)) return candidate;
  }
}

bool MonitorString::isPathHidden(const std::string& path) {
  const std::string name = PathName::lastComponent(path);
  const UniqueFd folder = openParentFolder(path);
  return folder ? HiddenList(folder.get()).isHidden(name) : name.starts_with(".");
}

bool MonitorString::pathInvisibility(const std::string& path, bool hidden) {
  const UniqueFd folder = openParentFolder(path);
  return folder && HiddenList(folder.get()).setHidden(PathName::lastComponent(path), hidden);
}

std::optional<std::string> MonitorString::cstringToString(const char* bytes) {
  if (!bytes) return std::nullopt;
  const auto* p = reinterpret_cast<const unsigned char*>(bytes);
  // Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
  while (*p) {
    const unsigned char c = *p;
    int more = 0;
    unsigned min = 0, cp = 0;
    if (c < 0x80) {
      ++p;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      more = 1, min = 0x80, cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      more = 2, min = 0x800, cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      more = 3, min = 0x10000, cp = c & 0x07;
    } else {
      return std::nullopt;
    }
    ++p;
    for (int i = 0; i < more; ++i, ++p) {
      if ((*p & 0xC0) != 0x80) return std::nullopt;
      cp = (cp << 6) | (*p & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return std::nullopt;
  }
  return std::string(bytes);
}

bool MonitorString::contains(const std::string& s, const std::string& needle, unsigned options) {
  if (needle.empty() || needle.size() > s.size()) return false;
  const bool fold = options & CaseInsensitive;
  if (options & Anchored) {
    const size_t at = (options & Backwards) ? s.size() - needle.size() : 0;
    return equalAt(s, at, needle, fold);
  }
  for (size_t at = 0; at + needle.size() <= s.size(); ++at) {
    if (equalAt(s, at, needle, fold)) return true;
  }
  return false;
}

bool MonitorString::startWith(const std::string& s, const std::string& prefix, unsigned options) {
  return contains(s, prefix, (options & ~static_cast<unsigned>(Backwards)) | Anchored);
}

int MonitorString::compareNumeric(const std::string& a, const std::string& b) {
  auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (isDigit(a[i]) && isDigit(b[j])) {
      // Compare the digit runs by value: skip leading zeros, then longer is larger, then the
      // first differing digit decides.
      while (i < a.size() && a[i] == '0') ++i;
      while (j < b.size() && b[j] == '0') ++j;
      size_t ei = i, ej = j;
      while (ei < a.size() && isDigit(a[ei])) ++ei;
      while (ej < b.size() && isDigit(b[ej])) ++ej;
      if (ei - i != ej - j) return ei - i < ej - j ? -1 : 1;
      const int c = a.compare(i, ei - i, b, j, ej - j);
      if (c != 0) return c < 0 ? -1 : 1;
      i = ei;
      j = ej;
      continue;
    }
    if (a[i] != b[j])
      return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]) ? -1 : 1;
    ++i;
    ++j;
  }
  if (i < a.size()) return 1;
  if (j < b.size()) return -1;
  return 0;
}

}  // namespace vexa
