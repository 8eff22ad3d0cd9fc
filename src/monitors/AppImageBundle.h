#pragma once

#include "monitors/AppBundle.h"

namespace vexa {

// An AppImage: an executable whose ELF header carries the AppImage mark ("AI" and the type
// byte at offset 8), followed by a squashfs image with the application's desktop entry and icon
// at its root. The entry and the icon are read with unsquashfs without running the image.
class AppImageBundle : public AppBundle {
 public:
  // A name ending in ".AppImage", any case.
  static bool hasImageName(const std::string& path);
  // That name, and the ELF magic plus the AppImage mark in the file's first 16 bytes.
  static bool hasMark(const std::string& path);
  // Where the squashfs image starts: the end of the ELF section header table. 0 when the file
  // is not an ELF file followed by a squashfs image.
  static uint64_t imageOffset(const std::string& path);
  ~AppImageBundle() override;
  static std::unique_ptr<AppBundle> open(const std::string& path);

  std::optional<std::string> displayName() const override;
  std::optional<std::string> executablePath() const override { return path(); }

 private:
  AppImageBundle(std::string path, nlohmann::json info, std::optional<std::string> display,
                 std::string scratch)
      : AppBundle(std::move(path), std::move(info)),
        display_(std::move(display)),
        scratch_(std::move(scratch)) {}
  std::optional<std::string> display_;
  std::string scratch_;  // the folder the entry and icon were unpacked into; removed with this
};

}  // namespace vexa
