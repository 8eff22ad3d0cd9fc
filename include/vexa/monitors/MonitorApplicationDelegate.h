#pragma once

#include <memory>
#include <vector>

#include "vexa/Export.h"
#include "vexa/monitors/AppFile.h"

namespace vexa {

// Hears what the installed-application monitor finds. Both operations are optional.
class VEXA_EXPORT MonitorApplicationDelegate {
 public:
  virtual ~MonitorApplicationDelegate() = default;
  // The applications removed without the host's knowledge, still waiting for its clean-up.
  virtual void appsScan(const std::vector<std::shared_ptr<AppFile>>& apps) { (void)apps; }
  // One application was trashed or deleted.
  virtual void appRemoved(const std::shared_ptr<AppFile>& app) { (void)app; }
};

}  // namespace vexa
