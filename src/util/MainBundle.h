#pragma once

#include <string>

namespace vexa {

// The program this process runs, as the desktop would start it again.
class MainBundle {
 public:
  // The real path of $APPIMAGE when it names an existing file (an AppImage runs from a temporary
  // mount: the image itself is what must be started), else the real path of the running
  // executable. Empty when neither can be found.
  static std::string path();
  // The real path of the running executable; empty when it cannot be found.
  static std::string executable();
};

}  // namespace vexa
