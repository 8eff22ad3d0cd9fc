#pragma once

#include <optional>
#include <string>

#include "vexa/Export.h"

namespace vexa {

// String operations: the user's standard folders, system version and processor, unique and
// hidden paths, comparisons.
//
// Folders follow the environment on every call (HOME, XDG_*, TMPDIR): the data home
// ($XDG_DATA_HOME) stands for the user's library and application-support folder, the Trash is
// the FreeDesktop Trash's "files" folder, the user folders come from user-dirs.dirs.
// All operations are safe from any thread.
class VEXA_EXPORT MonitorString {
 public:
  // Options of contains/startWith, with the platform's values.
  enum Options : unsigned { CaseInsensitive = 1, Literal = 2, Backwards = 4, Anchored = 8 };

  // Processor name ("x86_64", "aarch64") and its processor type number: "i386" 7, "x86_64"
  // 16777223, "ppc" 18, "ppc64" 16777234, anything else 0 (case-insensitive).
  static std::string platform();
  static int platformFlag();
  static int platformFlag(const std::string& processor);

  // The kernel's version as "major.minor.bugfix" with every trailing ".0" removed ("6.1" for
  // "6.1.0-26-amd64"); "10.0" when it cannot be read (logged).
  static std::string osVersion();
  static std::string osVersionFromRelease(const std::string& release);
  static int getMajarVersion(const std::string& version);
  static int getMinorVersion(const std::string& version);
  static int getBugFixVersion(const std::string& version);

  static bool isNilOrEmpty(const std::string* s) { return s == nullptr || s->empty(); }
  static bool isNilOrEmpty(const std::optional<std::string>& s) { return !s || s->empty(); }
  static bool isNilOrEmpty(const char* s) { return s == nullptr || *s == 0; }

  // The application's own folder under the application-support folder, named by AppIdentity;
  // created when missing, and a file in its place replaced by a folder. Empty on failure.
  static std::optional<std::string> cacheFolder();
  static std::string iosBackupFoloder();
  static std::string userHomePath();
  static std::string tempPath();
  static std::optional<std::string> userDeskTopPath();
  static std::optional<std::string> userApplicationPath();
  // The first applications folder of XDG_DATA_DIRS that exists; empty when none does.
  static std::optional<std::string> applicationPath();
  static std::optional<std::string> userLibrary();
  static std::optional<std::string> userApplicationSupportPath();
  static std::optional<std::string> userMoviePath();
  static std::optional<std::string> userMusicPath();
  static std::optional<std::string> userPicturePath();
  static std::optional<std::string> userDownlodsPath();
  static std::optional<std::string> userDocumentPath();
  static std::optional<std::string> userTrashPath();
  static std::optional<std::string> userPreferencesPath();

  // `path` when nothing exists there; otherwise the first free "name(N).ext" (or "name(N)"
  // without an extension) in the same folder, N counting from 1.
  static std::string generateSolePath(const std::string& path);
  // Sets the item's hidden flag (its name in the parent folder's ".hidden" list). False when
  // nothing exists at the path or the flag could not be set; a dot-name cannot be un-hidden.
  static bool pathInvisibility(const std::string& path, bool hidden);
  static bool isPathHidden(const std::string& path);

  // Empty for a null pointer or bytes that are not UTF-8.
  static std::optional<std::string> cstringToString(const char* bytes);
  static const char* toCString(const std::string& s) { return s.c_str(); }

  // Orderings that compare runs of digits by their value, so versions sort as people expect:
  // "10.10" is greater than "10.9", "1.02" equals "1.2".
  static int compareNumeric(const std::string& a, const std::string& b);
  static bool isGreaterThan(const std::string& a, const std::string& b) {
    return compareNumeric(a, b) > 0;
  }
  static bool isGreaterThanOrEqual(const std::string& a, const std::string& b) {
    return compareNumeric(a, b) >= 0;
  }
  static bool isLessThan(const std::string& a, const std::string& b) {
    return compareNumeric(a, b) < 0;
  }
  static bool isLessThanOrEqual(const std::string& a, const std::string& b) {
    return compareNumeric(a, b) <= 0;
  }

  // Substring and prefix tests. CaseInsensitive folds ASCII letters; Anchored limits contains to
  // the start (or, with Backwards, the end). An empty needle is never found.
  static bool contains(const std::string& s, const std::string& needle, unsigned options = 0);
  static bool startWith(const std::string& s, const std::string& prefix, unsigned options = 0);
};

}  // namespace vexa
