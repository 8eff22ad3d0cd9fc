#pragma once

#include <cstdint>
#include <string>

#include "vexa/Export.h"

namespace vexa {

// Hears from WatchTrash on the main thread. Both operations are optional.
class VEXA_EXPORT TrashWatchDelegate {
 public:
  virtual ~TrashWatchDelegate() = default;
  // An application arrived in the Trash.
  virtual void trashAddedApp(const std::string& path) { (void)path; }
  // The Trash's allocated bytes, at start and whenever they differ from those at start.
  virtual void trashUsedSizeChanged(uint64_t size) { (void)size; }
};

}  // namespace vexa
