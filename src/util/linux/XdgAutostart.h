#pragma once

#include <optional>
#include <string>
#include <vector>

#include "util/DesktopEntry.h"
#include "util/LoginItems.h"

namespace vexa {

// Login items as XDG autostart entries: "*.desktop" files in the user's autostart folder
// ($XDG_CONFIG_HOME/autostart) and the system's ($XDG_CONFIG_DIRS/autostart). A file name seen
// first wins: the user's over the system's, an earlier folder over a later one. Entries are
// written to and removed from the user's folder only; a system entry is taken out of effect by a
// user file of its name that says Hidden=true.
class XdgAutostart : public LoginItems {
 public:
  // `name` names the files written ("NAME.desktop", then "NAME-2.desktop", ...) and their Name
  // key; `desktops` is $XDG_CURRENT_DESKTOP (names separated by ':').
  XdgAutostart(std::string userFolder, std::vector<std::string> systemFolders, std::string name,
               const std::string& desktops);
  // The folders, desktop and application name of this process's environment.
  static std::unique_ptr<XdgAutostart> fromEnvironment();

  bool available() override;
  std::vector<Item> list() override;
  void append(const std::string& path) override;
  void remove(const Item& item) override;

  // The value of Exec that starts `path`: the path in double quotes with ", `, $ and \ escaped,
  // then escaped again as a string value. Empty for paths that desktops cannot start from an
  // entry (a '%', a '\', control characters, bytes that are not UTF-8).
  static std::optional<std::string> execValue(const std::string& path);

 private:
  // The file's entry when it is a regular file of at most 64 KiB with a "[Desktop Entry]" group.
  static std::optional<DesktopEntry> read(const std::string& file);
  // The real path of the program an entry starts; empty when it starts none that exists.
  static std::optional<std::string> program(const DesktopEntry& entry);
  // Not hidden, not disabled, shown in this desktop, its TryExec found.
  bool inEffect(const DesktopEntry& entry) const;
  bool writeEntry(const std::string& file, const std::string& path, bool hidden) const;
  // Whether a user file `name` may be written for `path`: no folder has one, or the one in effect
  // starts `path`.
  bool nameIsOurs(const std::string& name, const std::string& path) const;

  std::string userFolder_;
  std::vector<std::string> systemFolders_;
  std::string name_;
  std::vector<std::string> desktops_;
};

}  // namespace vexa
