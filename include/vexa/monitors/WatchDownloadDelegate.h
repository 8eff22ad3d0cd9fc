#pragma once

#include <string>

#include "vexa/Export.h"

namespace vexa {

// Hears from WatchDownload on the main thread. The operation is optional.
class VEXA_EXPORT WatchDownloadDelegate {
 public:
  virtual ~WatchDownloadDelegate() = default;
  // A browser download completed: `path` is the finished file, or what the browser unpacked a
  // downloaded archive to.
  virtual void downloadFileCompleted(const std::string& path) { (void)path; }
};

}  // namespace vexa
