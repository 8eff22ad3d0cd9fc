#pragma once

#include <string>

#include "vexa/Export.h"

namespace vexa {

// Hears from WatchApplication on the main thread. Both operations are optional.
class VEXA_EXPORT ApplicationsWatchDelegate {
 public:
  virtual ~ApplicationsWatchDelegate() = default;
  // An application appeared in the applications folder.
  virtual void appAdded(const std::string& path) { (void)path; }
  // The watched folder, or an item in it, was moved to the Trash; `path` is where it lies now.
  virtual void movedToTrash(const std::string& path) { (void)path; }
};

}  // namespace vexa
