#pragma once

#include <string>

namespace vexa {

// Writes one message to the system log; with mirror, also to standard error.
void syslogBackendWrite(const std::string& message, bool mirror);

}  // namespace vexa
