#pragma once

#include "monitors/AppBundle.h"

namespace vexa {

// A ".app" folder: Contents/Info.plist (XML or binary), the program in Contents/MacOS, resources
// in Contents/Resources.
class MacAppBundle : public AppBundle {
 public:
  static bool hasBundleName(const std::string& path);
  static std::unique_ptr<AppBundle> open(const std::string& path);

  std::optional<std::string> displayName() const override;
  std::optional<std::string> executablePath() const override;

 private:
  using AppBundle::AppBundle;
};

}  // namespace vexa
