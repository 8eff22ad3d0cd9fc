#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"
#include "vexa/status/BatteryDelegate.h"

namespace vexa {

class PowerSources;
class SamplerTimer;
struct PowerSnapshot;

// Follows the machine's power sources and tells its delegate about the battery: still
// calculating, time left, charged, time to full, and the charge level crossing 20 % on battery
// or 50 % while charging. The sources are read again every 30 seconds, and whenever they
// announce a change, on the run loop of the thread that made the object; an update is made only
// when they changed. While on battery a 60-second timer counts the time since the machine was
// unplugged.
class VEXA_EXPORT BatteryStatus : public std::enable_shared_from_this<BatteryStatus> {
 public:
  // The process's battery watcher of this machine.
  static BatteryStatus* shared();
  // A watcher of the machine's power sources, checking every 30 seconds on the calling thread's
  // run loop. On the running machine ("/") they come from the power daemon on the system bus
  // while it runs, else from /sys/class/power_supply; under another root, from its files.
  static std::shared_ptr<BatteryStatus> create(const std::string& root = "/");
  // A watcher of the given sources, checking every `checkSeconds` (0: only when asked).
  static std::shared_ptr<BatteryStatus> withSources(std::unique_ptr<PowerSources> sources,
                                                    int checkSeconds);
  ~BatteryStatus();
  BatteryStatus(const BatteryStatus&) = delete;
  BatteryStatus& operator=(const BatteryStatus&) = delete;

  std::shared_ptr<BatteryDelegate> delegate() const;
  void setDelegate(std::shared_ptr<BatteryDelegate> delegate);

  // Reads the sources and tells the delegate what changed.
  void updateStatus();
  // updateStatus, then the battery's own figures.
  void updateCurrentStatus();
  // Reads the sources and updates only when they differ from the last reading.
  void checkForChange();
  // One minute more on battery.
  void unpluggedTimerTick();
  static double convertCelsiusToFahrenheit(double celsius);
  // The battery information array; nothing without a battery.
  std::optional<nlohmann::json> getAdvancedBatteryInfo();
  // The battery's own figures (empty without a battery).
  nlohmann::json getMoreAdvancedBatteryInfo();
  bool isHasBattery();

  std::string health() const;
  int64_t currentPercent() const;
  int64_t previousPercent() const;
  int32_t capacity() const;
  int32_t cycleCount() const;
  double watt() const;
  double celsius() const;
  double fahrenheit() const;
  // Time on battery as "h:mm".
  std::string timeSinceUnpluggedTranslated() const;
  nlohmann::json batteryMaxCapacity() const;
  nlohmann::json batteryCurrentCapacity() const;
  nlohmann::json batteryCycleCount() const;
  nlohmann::json batteryAmperage() const;
  nlohmann::json batteryVoltage() const;
  double batteryWatt() const;
  double batteryTemperature() const;
  std::string batteryHealth() const;

 private:
  BatteryStatus(std::unique_ptr<PowerSources> sources);
  void update(const PowerSnapshot& snapshot);
  void updateFigures(const PowerSnapshot& snapshot);
  void startUnpluggedTimer();

  std::unique_ptr<PowerSources> sources_;
  std::unique_ptr<PowerSnapshot> last_;
  std::unique_ptr<SamplerTimer> checkTimer_;
  std::unique_ptr<SamplerTimer> unpluggedTimer_;
  // Guards the figures below; the delegate is called with it released.
  mutable std::mutex lock_;
  std::shared_ptr<BatteryDelegate> delegate_;
  std::string health_;
  int64_t currentPercent_ = 0;
  int64_t previousPercent_ = 0;
  std::string prevPowerSource_;
  int64_t unpluggedTimerCount_ = 0;
  int32_t capacity_ = 0;
  int32_t cycleCount_ = 0;
  double watt_ = 0;
  double celsius_ = 0;
  double fahrenheit_ = 0;
  std::string timeSinceUnplugged_ = "0:00";
  nlohmann::json maxCapacity_, currentCapacity_, cycles_, amperage_, voltage_;
  double batteryWatt_ = 0;
  double batteryTemperature_ = 0;
  std::string batteryHealth_;
};

}  // namespace vexa
