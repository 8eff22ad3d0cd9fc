#pragma once

#include <memory>
#include <string>

namespace vexa {

// Starts installed applications by their identity (on Linux, the name of their desktop entry).
class AppLauncher {
 public:
  virtual ~AppLauncher() = default;
  // Starts it in the background; false when there is no such application or it did not start.
  virtual bool launch(const std::string& identity) = 0;

  // The desktop's launcher.
  static std::shared_ptr<AppLauncher> system();
};

}  // namespace vexa
