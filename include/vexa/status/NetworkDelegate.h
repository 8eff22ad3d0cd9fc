#pragma once

#include <nlohmann/json.hpp>

#include "vexa/Export.h"

namespace vexa {

// Hears from NetworkStatus on the sampling timer's thread. The operation is optional.
class VEXA_EXPORT NetworkDelegate {
 public:
  virtual ~NetworkDelegate() = default;
  // The service records. Sent once for each record of a sample, each time with the list as
  // completed so far (the records before it carry their traffic, the ones after do not yet).
  virtual void networkStatus(const nlohmann::json& services) { (void)services; }
};

}  // namespace vexa
