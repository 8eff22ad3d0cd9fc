#pragma once

#include <functional>
#include <string>

#include "vexa/Export.h"

namespace vexa {

// The library's system log. Messages go to syslog (facility user, tagged with the program name)
// unless a sink is set, in which case they go only to the sink: a host can route them into its
// own log, and tests capture them. Safe from any thread; the sink is called on the logging
// thread, one message at a time.
class VEXA_EXPORT SystemLog {
 public:
  using Sink = std::function<void(const std::string& message)>;

  static void log(const char* format, ...) __attribute__((format(printf, 1, 2)));
  static void write(const std::string& message);
  // A message for debugging: syslog's debug level, never mirrored to standard error; nothing is
  // formatted when the process's log mask leaves that level out and no sink is set.
  static void debug(const char* format, ...) __attribute__((format(printf, 1, 2)));

  // Replaces the sink; an empty sink restores syslog.
  static void setSink(Sink sink);
  // Also copies every syslog message to standard error (for the programs' --verbose).
  static void setMirrorToStderr(bool mirror);
};

}  // namespace vexa
