#include "vexa/status/BatteryStatus.h"

#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

#include "status/DaemonPowerSources.h"
#include "status/MachineFiles.h"
#include "status/PowerSources.h"
#include "status/PowerSupplyChanges.h"
#include "status/SamplerTimer.h"
#include "status/SysfsPowerSupplies.h"

namespace vexa {

namespace {

constexpr int kCheckSeconds = 30;
constexpr int kUnpluggedTickSeconds = 60;

std::string hoursMinutes(int64_t hours, int64_t minutes) {
  char text[48];
  std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(hours),
                static_cast<long long>(minutes));
  return text;
}

std::string percentText(int64_t percent) { return std::to_string(percent) + "%"; }

double numberOr(const nlohmann::json& object, const char* key, double fallback) {
  if (!object.is_object()) return fallback;
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number()) return fallback;
  return found->get<double>();
}

bool flag(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_boolean() && found->get<bool>();
}

// A whole number of a double, saturated instead of undefined for what does not fit.
int64_t truncated(double value) {
  if (std::isnan(value)) return 0;
  if (value >= 9.2e18) return INT64_MAX;
  if (value <= -9.2e18) return INT64_MIN;
  return static_cast<int64_t>(value);
}

}  // namespace

BatteryStatus* BatteryStatus::shared() {
  static std::mutex lock;
  static std::shared_ptr<BatteryStatus> instance;
  std::lock_guard guard(lock);
  if (!instance) instance = create("/");
  return instance.get();
}

std::shared_ptr<BatteryStatus> BatteryStatus::create(const std::string& root) {
  // A captured tree has no daemon of its own, and announces nothing.
  if (!root.empty() && root != "/") {
    return withSources(std::make_unique<SysfsPowerSupplies>(MachineFiles::underRoot(root)),
                       kCheckSeconds);
  }
  auto files = std::make_unique<SysfsPowerSupplies>(MachineFiles::underRoot(root),
                                                    PowerSupplyChanges::system());
  return withSources(std::make_unique<DaemonPowerSources>(PowerDaemon::system(), std::move(files)),
                     kCheckSeconds);
}

std::shared_ptr<BatteryStatus> BatteryStatus::withSources(std::unique_ptr<PowerSources> sources,
                                                          int checkSeconds) {
  std::shared_ptr<BatteryStatus> status(new BatteryStatus(std::move(sources)));
  status->sources_->follow([weak = status->weak_from_this()] {
    if (const auto self = weak.lock()) self->checkForChange();
  });
  if (checkSeconds > 0) {
    status->checkTimer_->set(checkSeconds, [weak = status->weak_from_this()] {
      if (const auto self = weak.lock()) self->checkForChange();
    });
  }
  return status;
}

BatteryStatus::BatteryStatus(std::unique_ptr<PowerSources> sources)
    : sources_(std::move(sources)),
      checkTimer_(std::make_unique<SamplerTimer>()),
      unpluggedTimer_(std::make_unique<SamplerTimer>()) {}

BatteryStatus::~BatteryStatus() {
  checkTimer_->stop();
  unpluggedTimer_->stop();
}

std::shared_ptr<BatteryDelegate> BatteryStatus::delegate() const {
  std::lock_guard guard(lock_);
  return delegate_;
}

void BatteryStatus::setDelegate(std::shared_ptr<BatteryDelegate> delegate) {
  std::lock_guard guard(lock_);
  delegate_ = std::move(delegate);
}

void BatteryStatus::updateStatus() { update(sources_->read()); }

void BatteryStatus::updateCurrentStatus() {
  const PowerSnapshot snapshot = sources_->read();
  update(snapshot);
  updateFigures(snapshot);
}

void BatteryStatus::checkForChange() {
  PowerSnapshot snapshot = sources_->read();
  {
    std::lock_guard guard(lock_);
    if (last_ && *last_ == snapshot) return;
    last_ = std::make_unique<PowerSnapshot>(snapshot);
  }
  update(snapshot);
  updateFigures(snapshot);
}

void BatteryStatus::update(const PowerSnapshot& snapshot) {
  std::vector<std::function<void(BatteryDelegate&)>> calls;
  {
    std::lock_guard guard(lock_);
    const double t = snapshot.timeRemaining;
    const int64_t seconds = truncated(t);
    const int64_t hours = seconds / 3600;
    const int64_t minutes = (seconds - hours * 3600) / 60;
    for (const auto& d : snapshot.sources) {
      if (!d.is_object()) continue;
      const auto health = d.find("BatteryHealth");
      health_ = health != d.end() && health->is_string() ? health->get<std::string>() : "";
      if (!flag(d, "Is Present")) continue;
      const double current = numberOr(d, "Current Capacity", 0);
      const double max = numberOr(d, "Max Capacity", 0);
      currentPercent_ =
          max > 0 ? truncated(static_cast<double>(truncated(current)) / max * 100.0) : 0;
      const auto stateEntry = d.find("Power Source State");
      const std::string state = stateEntry != d.end() && stateEntry->is_string()
                                    ? stateEntry->get<std::string>()
                                    : std::string();
      if (state != prevPowerSource_) {
        if (state == "Battery Power") {
          unpluggedTimerCount_ = 0;
          startUnpluggedTimer();
        } else if (state == "AC Power") {
          unpluggedTimer_->stop();
        }
        prevPowerSource_ = state;
      }
      const bool charging = flag(d, "Is Charging");
      const int64_t percent = currentPercent_;
      if (state == "Battery Power" && !charging && (t == -1.0 || t == -2.0)) {
        calls.emplace_back([percent](BatteryDelegate& to) {
          to.batteryCalculating(static_cast<double>(percent));
        });
        continue;
      }
      if (t != -2.0) {
        calls.emplace_back([text = hoursMinutes(hours, minutes)](BatteryDelegate& to) {
          to.batteryWithRemaining(text);
        });
        if (previousPercent_ == currentPercent_) continue;
        if (currentPercent_ <= 20) {
          calls.emplace_back([text = percentText(percent)](BatteryDelegate& to) {
            to.batteryRemainingWithLeft(text);
          });
        }
        previousPercent_ = currentPercent_;
        continue;
      }
      if (!charging) {
        calls.emplace_back([](BatteryDelegate& to) { to.batteryCharged(); });
        if (truncated(current) == truncated(max) && previousPercent_ != currentPercent_) {
          calls.emplace_back([](BatteryDelegate& to) { to.charged(); });
          previousPercent_ = currentPercent_;
        }
        continue;
      }
      const int64_t toFull = truncated(numberOr(d, "Time to Full Charge", 0));
      if (toFull < 1) {
        calls.emplace_back([](BatteryDelegate& to) { to.batteryChargingCalculating(); });
        continue;
      }
      calls.emplace_back([text = hoursMinutes(toFull / 60, toFull % 60)](BatteryDelegate& to) {
        to.batteryChargingWithRemaining(text);
      });
      if (previousPercent_ == currentPercent_) continue;
      if (currentPercent_ >= 50) {
        calls.emplace_back([text = percentText(percent)](BatteryDelegate& to) {
          to.batteryRemainingWithLeft(text);
        });
      }
      previousPercent_ = currentPercent_;
    }

    const bool hasInfo =
        snapshot.batteryInfo && snapshot.batteryInfo->is_array() && !snapshot.batteryInfo->empty();
    const nlohmann::json a = hasInfo ? snapshot.batteryInfo->front() : nlohmann::json();
    capacity_ = static_cast<int32_t>(truncated(numberOr(a, "Current", 0)));
    cycleCount_ = static_cast<int32_t>(truncated(numberOr(a, "Cycle Count", 0)));
    // Single precision, as the figures were always computed.
    watt_ = static_cast<double>(static_cast<float>(numberOr(a, "Voltage", 0) / 1000.0) *
                                static_cast<float>(numberOr(a, "Amperage", 0) / 1000.0));
    celsius_ = numberOr(snapshot.batteryProperties, "Temperature", 0) / 100.0;
    fahrenheit_ = convertCelsiusToFahrenheit(celsius_);
    const int64_t unpluggedHours = unpluggedTimerCount_ / 3600;
    timeSinceUnplugged_ =
        hoursMinutes(unpluggedHours, (unpluggedTimerCount_ - unpluggedHours * 3600) / 60);
  }
  if (const auto to = delegate()) {
    for (const auto& call : calls) call(*to);
  }
}

void BatteryStatus::updateFigures(const PowerSnapshot& snapshot) {
  std::lock_guard guard(lock_);
  const auto& r = snapshot.batteryProperties;
  auto value = [&r](const char* key) {
    return r.is_object() && r.contains(key) ? r[key] : nlohmann::json();
  };
  maxCapacity_ = value("MaxCapacity");
  currentCapacity_ = value("CurrentCapacity");
  cycles_ = value("CycleCount");
  amperage_ = value("Amperage");
  voltage_ = value("Voltage");
  batteryWatt_ = numberOr(r, "Voltage", 0) * (numberOr(r, "Amperage", 0) / 1000.0) / 1000.0;
  batteryTemperature_ = numberOr(r, "Temperature", 0) / 100.0;
  batteryHealth_ = health_;
}

void BatteryStatus::startUnpluggedTimer() {
  // A new period from now, even when a timer of the same period runs.
  unpluggedTimer_->set(0, {});
  unpluggedTimer_->set(kUnpluggedTickSeconds, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->unpluggedTimerTick();
  });
}

void BatteryStatus::unpluggedTimerTick() {
  std::lock_guard guard(lock_);
  unpluggedTimerCount_ += kUnpluggedTickSeconds;
  const int64_t hours = unpluggedTimerCount_ / 3600;
  timeSinceUnplugged_ = hoursMinutes(hours, (unpluggedTimerCount_ - hours * 3600) / 60);
}

double BatteryStatus::convertCelsiusToFahrenheit(double celsius) {
  return celsius * 9.0 / 5.0 + 32.0;
}

std::optional<nlohmann::json> BatteryStatus::getAdvancedBatteryInfo() {
  return sources_->read().batteryInfo;
}

nlohmann::json BatteryStatus::getMoreAdvancedBatteryInfo() {
  return sources_->read().batteryProperties;
}

bool BatteryStatus::isHasBattery() { return getAdvancedBatteryInfo().has_value(); }

std::string BatteryStatus::health() const {
  std::lock_guard guard(lock_);
  return health_;
}

int64_t BatteryStatus::currentPercent() const {
  std::lock_guard guard(lock_);
  return currentPercent_;
}

int64_t BatteryStatus::previousPercent() const {
  std::lock_guard guard(lock_);
  return previousPercent_;
}

int32_t BatteryStatus::capacity() const {
  std::lock_guard guard(lock_);
  return capacity_;
}

int32_t BatteryStatus::cycleCount() const {
  std::lock_guard guard(lock_);
  return cycleCount_;
}

double BatteryStatus::watt() const {
  std::lock_guard guard(lock_);
  return watt_;
}

double BatteryStatus::celsius() const {
  std::lock_guard guard(lock_);
  return celsius_;
}

double BatteryStatus::fahrenheit() const {
  std::lock_guard guard(lock_);
  return fahrenheit_;
}

std::string BatteryStatus::timeSinceUnpluggedTranslated() const {
  std::lock_guard guard(lock_);
  return timeSinceUnplugged_;
}

nlohmann::json BatteryStatus::batteryMaxCapacity() const {
  std::lock_guard guard(lock_);
  return maxCapacity_;
}

nlohmann::json BatteryStatus::batteryCurrentCapacity() const {
  std::lock_guard guard(lock_);
  return currentCapacity_;
}

nlohmann::json BatteryStatus::batteryCycleCount() const {
  std::lock_guard guard(lock_);
  return cycles_;
}

nlohmann::json BatteryStatus::batteryAmperage() const {
  std::lock_guard guard(lock_);
  return amperage_;
}

nlohmann::json BatteryStatus::batteryVoltage() const {
  std::lock_guard guard(lock_);
  return voltage_;
}

double BatteryStatus::batteryWatt() const {
  std::lock_guard guard(lock_);
  return batteryWatt_;
}

double BatteryStatus::batteryTemperature() const {
  std::lock_guard guard(lock_);
  return batteryTemperature_;
}

std::string BatteryStatus::batteryHealth() const {
  std::lock_guard guard(lock_);
  return batteryHealth_;
}

}  // namespace vexa
