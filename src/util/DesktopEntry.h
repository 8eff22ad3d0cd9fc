#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexa {

// The "[Desktop Entry]" group of a desktop entry file (the XDG Desktop Entry format): the record
// a Linux desktop keeps for each installed application.
class DesktopEntry {
 public:
  // Empty when the text has no "[Desktop Entry]" group. Lines it cannot read are skipped; a key
  // given twice keeps its first value.
  static std::optional<DesktopEntry> parse(std::string_view text);

  // A value with the format's escapes (\s \n \t \r \\) resolved.
  std::optional<std::string> value(const std::string& key) const;
  // The value for the first language that has one ("de_DE" tries Name[de_DE], then Name[de]),
  // else the plain value.
  std::optional<std::string> localized(const std::string& key,
                                       const std::vector<std::string>& languages) const;

  // The user's languages as desktop entries name locales ("de_DE"), most preferred first.
  static std::vector<std::string> userLocales();

  bool isApplication() const { return value("Type") == "Application"; }
  // Hidden=true marks a deleted entry; NoDisplay=true one not shown in menus.
  bool isHidden() const { return value("Hidden") == "true"; }
  bool noDisplay() const { return value("NoDisplay") == "true"; }
  // TryExec, else the program of Exec (its first argument, quotes resolved).
  std::optional<std::string> executable() const;
  // Exec split into arguments, quoting resolved and field codes (%f %U ...) dropped.
  std::vector<std::string> execArguments() const;

  // The desktop file id of a file below an applications folder: the relative path with "/"
  // turned into "-" ("kde/konsole.desktop" -> "kde-konsole.desktop").
  static std::string desktopFileId(const std::string& path, const std::string& applicationsFolder);

 private:
  std::map<std::string, std::string> raw_;  // key (with any [locale]) -> raw value
};

}  // namespace vexa
