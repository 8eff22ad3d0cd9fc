#pragma once

#include <string>

namespace vexa {

// Writes one message to the system log; with mirror, also to standard error.
void syslogBackendWrite(const std::string& message, bool mirror);
// Writes one message at the debug level, never mirrored.
void syslogBackendDebug(const std::string& message);
// Whether the process's log mask lets debug messages through.
bool syslogBackendWantsDebug();

}  // namespace vexa
