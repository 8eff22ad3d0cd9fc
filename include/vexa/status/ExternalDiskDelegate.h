#pragma once

#include <string>

#include "vexa/Export.h"

namespace vexa {

// Hears from ExternalDiskMonitor. Both operations are optional.
class VEXA_EXPORT ExternalDiskDelegate {
 public:
  virtual ~ExternalDiskDelegate() = default;
  // A new volume is mounted at `path`. Sent on a worker of the "com.dispatch.mount" queue.
  virtual void mountedPath(const std::string& path, bool writable) {
    (void)path;
    (void)writable;
  }
  // A volume reported by mountedPath has gone (unmounted or removed). Sent on the monitor's
  // thread or on a worker.
  virtual void unmountedPath(const std::string& path) { (void)path; }
};

}  // namespace vexa
