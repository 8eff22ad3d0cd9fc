#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vexa/monitors/AppFile.h"

namespace vexa {

class AppRecordBuilder;
class DispatchQueue;

// The records of every installed application (ApplicationFolders), taken at once.
class ApplicationInventory {
 public:
  // The record of each application whose path, normalised as a file URL would be, starts with
  // one of `prefixes` (every one for an empty list), by path. Applications that do not fill are
  // left out. Filling is mostly waiting on the disk and decoding icons, so it is shared between
  // the calling thread and workers of `queue` (concurrent); returns when all are done. Takes no
  // lock of the caller's.
  static std::map<std::string, std::shared_ptr<const AppFile>> take(
      const std::vector<std::string>& prefixes, const AppRecordBuilder& builder,
      DispatchQueue& queue);
};

}  // namespace vexa
