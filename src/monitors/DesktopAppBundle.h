#pragma once

#include "monitors/AppBundle.h"
#include "util/DesktopEntry.h"

namespace vexa {

// A desktop entry file of Type=Application that is neither Hidden nor NoDisplay. Its identifier
// is the desktop file id without ".desktop" (the application id Flatpak, D-Bus activation and
// the shells use), its icon is found through the icon theme, its program comes from TryExec or
// Exec (searched on PATH when not absolute).
class DesktopAppBundle : public AppBundle {
 public:
  static bool hasEntryName(const std::string& path);
  static std::unique_ptr<AppBundle> open(const std::string& path);
  // The entry at `path` when it is one open() accepts: read and parsed only, no icon or
  // program looked up, so that it is cheap to ask of every file a walk meets.
  static std::optional<DesktopEntry> readApplicationEntry(const std::string& path);
  // Builds the Info dictionary of an entry found at `path`.
  static nlohmann::json infoOf(const DesktopEntry& entry, const std::string& path);

  std::optional<std::string> displayName() const override;
  std::optional<std::string> executablePath() const override;

 private:
  DesktopAppBundle(std::string path, nlohmann::json info, std::optional<std::string> display,
                   std::optional<std::string> program)
      : AppBundle(std::move(path), std::move(info)),
        display_(std::move(display)),
        program_(std::move(program)) {}

  std::optional<std::string> display_;
  std::optional<std::string> program_;
};

}  // namespace vexa
