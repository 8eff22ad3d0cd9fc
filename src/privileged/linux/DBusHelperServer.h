#pragma once

#include <sys/types.h>
#include <string>
#include <vector>

namespace vexa {

// The privileged helper's D-Bus service: owns "com.tarnwick.PrivilegesHelper" on a bus and
// answers Request(a{sv}) -> (a{sv}) through HelperService, each request on a pool thread.
//
// Callers are authorized per request: by polkit (action "com.tarnwick.PrivilegesHelper.purge" for
// dropping the caches, "com.tarnwick.PrivilegesHelper.request" for the rest) when polkit runs on
// the bus, otherwise only root and the uids given. Unauthorized requests are
// answered {"result": false}.
class DBusHelperServer {
 public:
  struct Options {
    std::string busAddress;  // empty: the system bus
    std::vector<uid_t> allowedUids;
  };
  // Serves until SIGINT or SIGTERM, or until the name is lost. Prints "vexa-helper ready" on
  // standard output once the name is owned. Answers the process's exit status.
  static int run(const Options& options);
};

}  // namespace vexa
