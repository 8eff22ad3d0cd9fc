#pragma once

#include <nlohmann/json.hpp>

#include "vexa/Export.h"

namespace vexa {

// Hears from DiskStatus on the sampling timer's thread. The operation is optional.
class VEXA_EXPORT DiskDelegate {
 public:
  virtual ~DiskDelegate() = default;
  // One dictionary per listed volume, in mount-table order; sent also when there is none.
  virtual void diskDetails(const nlohmann::json& disks) { (void)disks; }
};

}  // namespace vexa
