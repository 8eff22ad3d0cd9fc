#pragma once

#include <memory>

#include "status/PowerDaemon.h"
#include "status/PowerSources.h"

namespace vexa {

// The power sources as a power daemon keeps them, or as the fallback reads them whenever the
// daemon is not running or does not answer as it should.
class DaemonPowerSources final : public PowerSources {
 public:
  DaemonPowerSources(std::unique_ptr<PowerDaemon> daemon, std::unique_ptr<PowerSources> fallback);
  PowerSnapshot read() override;
  // The daemon's announcements and the fallback's, whichever can be heard.
  bool follow(std::function<void()> changed) override;

  // The snapshot of the daemon's devices, computed as for the kernel's supplies (devices that
  // power only themselves left out, the batteries as one source), with the daemon's own times
  // where it has them: the summary's, else those of a single battery.
  static PowerSnapshot summarize(const PowerDaemon::Devices& devices);

 private:
  std::unique_ptr<PowerDaemon> daemon_;
  std::unique_ptr<PowerSources> fallback_;
};

}  // namespace vexa
