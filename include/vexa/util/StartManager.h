#pragma once

#include <atomic>

#include "vexa/Export.h"

namespace vexa {

// Starts the host application when the user logs in, through an entry for the program of this
// very process in the user's login items (an XDG autostart entry). It never acts on a program
// named by the caller. Failures are silent: the list is left as it was.
class VEXA_EXPORT StartManager {
 public:
  // The last value set (false at first); the login items are not read.
  bool launchAtLogin() const { return launchAtLogin_.load(); }
  // Stores the value, then installs (true) or deletes (false) the entry, every time.
  void setLaunchAtLogin(bool value);

  // True when a login item starts this process's program.
  static bool hasDaemon();
  // Adds a login item for this process's program, unless one is there.
  static void installDaemon();
  // Removes every login item that starts this process's program.
  static void deleteDaemon();

 private:
  std::atomic<bool> launchAtLogin_{false};
};

}  // namespace vexa
