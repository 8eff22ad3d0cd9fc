// Power-supply changes as udev announces them. The kernel announces a supply's "change" when
// its state moves (a charger plugged in, a battery starting to charge or reaching a level its
// driver reports), and udevd passes the announcement on once it has handled it.
#include <atomic>

#include "status/PowerSupplyChanges.h"
#include "status/linux/UdevMonitor.h"
#include "util/FdWatch.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace {

class UdevPowerSupplyChanges final : public PowerSupplyChanges {
 public:
  bool start(std::function<void()> changed) override {
    auto monitor = std::make_shared<UdevMonitor>();
    if (!monitor->listen("power_supply")) {
      SystemLog::log("cannot listen to udev: power supply changes are found by reading again");
      return false;
    }
    static std::atomic<bool> logged{false};
    if (!UdevMonitor::daemonRuns() && !logged.exchange(true)) {
      SystemLog::log("no udev daemon runs: power supply changes are found by reading again");
    }
    const int fd = monitor->fd();
    watch_ = FdWatch::start(RunLoop::current(), fd,
                            [monitor = std::move(monitor), changed = std::move(changed)] {
                              if (monitor->drain()) changed();
                            });
    return watch_ != nullptr;
  }

 private:
  std::unique_ptr<FdWatch> watch_;
};

}  // namespace

std::unique_ptr<PowerSupplyChanges> PowerSupplyChanges::system() {
  return std::make_unique<UdevPowerSupplyChanges>();
}

}  // namespace vexa
