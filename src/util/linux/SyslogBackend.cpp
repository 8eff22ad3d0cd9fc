#include "util/SyslogBackend.h"

#include <syslog.h>

#include <cstdio>

namespace vexa {

void syslogBackendWrite(const std::string& message, bool mirror) {
  // openlog is not called: syslog tags messages with the program name by itself, and a library
  // must not change the host's own openlog settings.
  syslog(LOG_USER | LOG_NOTICE, "%s", message.c_str());
  if (mirror) std::fprintf(stderr, "%s\n", message.c_str());
}

void syslogBackendDebug(const std::string& message) {
  syslog(LOG_USER | LOG_DEBUG, "%s", message.c_str());
}

bool syslogBackendWantsDebug() {
  // A mask of 0 reads the current mask without changing it.
  return (setlogmask(0) & LOG_MASK(LOG_DEBUG)) != 0;
}

}  // namespace vexa
