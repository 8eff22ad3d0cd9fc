#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace vexa {

// The package that installed a file, as its package manager records it.
struct PackageOwner {
  enum class Manager { Dpkg, Flatpak, Snap };
  Manager manager = Manager::Dpkg;
  std::string name;  // dpkg package, Flatpak application id or snap name
  // As the package manager writes it: a Debian version ("1:2.5.1-3") for dpkg, the upstream
  // version for the others.
  std::optional<std::string> version;
  std::optional<uint64_t> installedSize;  // bytes the package occupies once installed
};

// Which package (dpkg, Flatpak, Snap) owns an application's desktop entry.
//
// Answers come from the package managers' own files, never by running a program. Safe to ask
// from many threads at once; an answer may block on the disk (the first question builds an
// index, and a size may take a bounded walk of a deployment). Unreadable or corrupt files give
// no owner or an owner with fewer fields: nothing is thrown.
class PackageDatabase {
 public:
  virtual ~PackageDatabase() = default;

  // The owner of the desktop entry at `path` (an absolute path as the monitor sees it); empty
  // when no package owns it.
  virtual std::optional<PackageOwner> ownerOf(const std::string& path) = 0;

  // False while the database may not yet know of the file at `path`: a package manager renames
  // its files into place first and records them afterwards, so an answer asked for in between
  // would be the old one (no owner, or the version being replaced). True when the database was
  // written since the file last changed, when no database covers the path, and for files that
  // are not desktop entries.
  virtual bool caughtUpWith(const std::string& path) = 0;

  // This system's databases, read below `root` ("/" on a live system; tests pass fixture trees).
  // Provided by the platform adapter.
  static std::shared_ptr<PackageDatabase> system(const std::string& root = "/");
};

}  // namespace vexa
