#pragma once

#include <memory>
#include <optional>
#include <string>

#include "vexa/Export.h"

namespace vexa {

// A decoded picture (PNG, JPEG, SVG, ICO, ... whatever the system's image loaders read).
// Immutable; safe to share between threads.
class VEXA_EXPORT Image {
 public:
  // Empty when the file cannot be read or decoded, or is larger than 64 MiB. The format is
  // recognised from the contents, whatever the name says. Pictures with an edge over 4096
  // pixels are read scaled down to that, in proportion.
  static std::shared_ptr<Image> load(const std::string& path);
  // A width x height picture of the given colour (0xRRGGBBAA).
  static std::shared_ptr<Image> filled(int width, int height, uint32_t rgba);

  int width() const;
  int height() const;
  // The whole picture drawn, scaled, into a new width x height picture at full opacity; empty
  // for sizes below 1.
  std::shared_ptr<Image> scaled(int width, int height) const;
  // The colour (0xRRGGBBAA) at a pixel; 0 outside the picture.
  uint32_t pixel(int x, int y) const;
  bool writePNG(const std::string& path) const;

  struct Impl;
  explicit Image(std::unique_ptr<Impl> impl);
  ~Image();

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace vexa
