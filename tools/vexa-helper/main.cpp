// vexa-helper: the privileged helper service "com.tarnwick.PrivilegesHelper". Started by
// D-Bus activation (as root) in production; tests run it unprivileged on a private bus given in
// VEXA_HELPER_BUS_ADDRESS, naming the uids it may serve with --allow-uid.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "privileged/linux/DBusHelperServer.h"

int main(int argc, char** argv) {
  vexa::DBusHelperServer::Options options;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--allow-uid") == 0 && i + 1 < argc) {
      char* end = nullptr;
      const long uid = std::strtol(argv[++i], &end, 10);
      if (*end != 0 || uid < 0) {
        std::fprintf(stderr, "vexa-helper: bad uid %s\n", argv[i]);
        return 2;
      }
      options.allowedUids.push_back(static_cast<uid_t>(uid));
    } else {
      std::fprintf(stderr, "usage: vexa-helper [--allow-uid UID]...\n");
      return 2;
    }
  }
  if (const char* address = std::getenv("VEXA_HELPER_BUS_ADDRESS")) options.busAddress = address;
  return vexa::DBusHelperServer::run(options);
}
