#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vexa {

// Finds an application icon by name the way the freedesktop icon theme lookup falls back: the
// "hicolor" theme in every icon folder (user first), the size closest to the one asked for
// (larger before smaller, scalable between them), then the legacy pixmaps folder. An absolute
// name is a file of its own.
class IconTheme {
 public:
  static std::optional<std::string> lookup(const std::string& name, int size = 64);
  // An icon of a context folder ("apps", "devices") in the named themes, the first theme that
  // has it winning; no legacy fallback.
  static std::optional<std::string> lookupIn(const std::string& name,
                                             const std::vector<std::string>& themes,
                                             const std::string& context, int size = 64);
  // $XDG_DATA_HOME/icons, ~/.icons, each $XDG_DATA_DIRS/icons, and the Flatpak export folders.
  static std::vector<std::string> iconFolders();
};

}  // namespace vexa
