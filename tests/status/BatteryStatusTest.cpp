#include "vexa/status/BatteryStatus.h"

#include <gtest/gtest.h>

#include <ostream>

#include "status/PowerSources.h"

namespace vexa {
namespace battery_status_test {

// Hands out whatever the test last put in `now`.
class ScriptedSources : public PowerSources {
 public:
  explicit ScriptedSources(std::shared_ptr<PowerSnapshot> now) : now_(std::move(now)) {}
  PowerSnapshot read() override { return *now_; }
  bool follow(std::function<void()> changed) override {
    announce = std::move(changed);
    return true;
  }
  std::function<void()> announce;

 private:
  std::shared_ptr<PowerSnapshot> now_;
};

class BatteryCalls : public BatteryDelegate {
 public:
  void batteryCalculating(double percent) override {
    calls.push_back("calculating " + std::to_string(static_cast<int>(percent)));
  }
  void batteryWithRemaining(const std::string& text) override {
    calls.push_back("remaining " + text);
  }
  void batteryRemainingWithLeft(const std::string& text) override {
    calls.push_back("left " + text);
  }
  void batteryCharged() override { calls.emplace_back("batteryCharged"); }
  void charged() override { calls.emplace_back("charged"); }
  void batteryChargingCalculating() override { calls.emplace_back("charging calculating"); }
  void batteryChargingWithRemaining(const std::string& text) override {
    calls.push_back("charging " + text);
  }
  std::vector<std::string> calls;
};

nlohmann::json source(double current, double max, bool onBattery, bool charging, int toFull = 0) {
  return {
      {"Is Present", true},      {"Current Capacity", current},
      {"Max Capacity", max},     {"Power Source State", onBattery ? "Battery Power" : "AC Power"},
      {"Is Charging", charging}, {"Time to Full Charge", toFull},
      {"BatteryHealth", "Good"}};
}

struct RuleCase {
  const char* name;
  double timeRemaining;
  nlohmann::json source;
  int64_t percent;
  std::vector<std::string> calls;
};
void PrintTo(const RuleCase& c, std::ostream* os) { *os << c.name; }

class BatteryRulesTest : public ::testing::TestWithParam<RuleCase> {
 protected:
  std::shared_ptr<PowerSnapshot> now_ = std::make_shared<PowerSnapshot>();
  std::shared_ptr<BatteryStatus> status_ =
      BatteryStatus::withSources(std::make_unique<ScriptedSources>(now_), 0);
  std::shared_ptr<BatteryCalls> calls_ = std::make_shared<BatteryCalls>();
};

TEST_P(BatteryRulesTest, TellsTheDelegateWhatTheChargeMeans) {
  status_->setDelegate(calls_);
  now_->timeRemaining = GetParam().timeRemaining;
  now_->sources = nlohmann::json::array({GetParam().source});
  status_->updateStatus();
  EXPECT_EQ(status_->currentPercent(), GetParam().percent);
  EXPECT_EQ(calls_->calls, GetParam().calls);
  // The same reading again says the times but no level.
  calls_->calls.clear();
  status_->updateStatus();
  for (const auto& call : calls_->calls) EXPECT_NE(call.rfind("left ", 0), 0u) << call;
}

INSTANTIATE_TEST_SUITE_P(
    Readings, BatteryRulesTest,
    ::testing::Values(
        RuleCase{"QuarterCharge", 3600, source(1000, 4000, true, false), 25, {"remaining 1:00"}},
        RuleCase{"CurrentTruncatedFirst",
                 3600,
                 source(999.9, 4000, true, false),
                 24,
                 {"remaining 1:00"}},
        RuleCase{
            "OnBatteryAt21NoLevel", 5000, source(21, 100, true, false), 21, {"remaining 1:23"}},
        RuleCase{"OnBatteryAt20Level",
                 5000,
                 source(20, 100, true, false),
                 20,
                 {"remaining 1:23", "left 20%"}},
        RuleCase{
            "ChargingAt49NoLevel", -2, source(49, 100, false, true, 95), 49, {"charging 1:35"}},
        RuleCase{"ChargingAt50Level",
                 -2,
                 source(50, 100, false, true, 95),
                 50,
                 {"charging 1:35", "left 50%"}},
        RuleCase{"ChargingTimeUnknown",
                 -2,
                 source(50, 100, false, true, 0),
                 50,
                 {"charging calculating"}},
        RuleCase{
            "OnBatteryStillCalculating", -1, source(70, 100, true, false), 70, {"calculating 70"}},
        RuleCase{
            "FullOnMains", -2, source(100, 100, false, false), 100, {"batteryCharged", "charged"}},
        RuleCase{"NotFullOnMains", -2, source(80, 100, false, false), 80, {"batteryCharged"}},
        RuleCase{"NotPresent",
                 3600,
                 {{"Is Present", false}, {"Current Capacity", 5}, {"Max Capacity", 100}},
                 0,
                 {}},
        RuleCase{"ZeroMaxCapacity", 3600, source(10, 0, true, false), 0, {"remaining 1:00"}},
        RuleCase{"WrongTypes", 3600, {{"Is Present", "yes"}, {"Current Capacity", "10"}}, 0, {}}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(BatteryStatusTest, AnnouncedChangesAreReadAndToldOnlyWhenNew) {
  auto now = std::make_shared<PowerSnapshot>();
  now->timeRemaining = 3600;
  now->sources = nlohmann::json::array({source(50, 100, true, false)});
  auto sources = std::make_unique<ScriptedSources>(now);
  ScriptedSources* announcer = sources.get();
  auto status = BatteryStatus::withSources(std::move(sources), 0);
  auto calls = std::make_shared<BatteryCalls>();
  status->setDelegate(calls);
  ASSERT_TRUE(announcer->announce);
  announcer->announce();
  EXPECT_EQ(calls->calls, std::vector<std::string>{"remaining 1:00"});
  calls->calls.clear();
  announcer->announce();  // nothing changed
  EXPECT_TRUE(calls->calls.empty());
  now->sources = nlohmann::json::array({source(20, 100, true, false)});
  announcer->announce();
  EXPECT_EQ(calls->calls, (std::vector<std::string>{"remaining 1:00", "left 20%"}));
  // Announcements after the watcher is gone reach nothing.
  auto late = announcer->announce;
  status.reset();
  late();
}

TEST(BatteryStatusTest, TemperatureInBothScales) {
  auto now = std::make_shared<PowerSnapshot>();
  now->batteryProperties = {{"Temperature", 3050}, {"Voltage", 12000}, {"Amperage", -1500}};
  now->batteryInfo = nlohmann::json::array({{{"Voltage", 12000}, {"Amperage", -1500}}});
  auto status = BatteryStatus::withSources(std::make_unique<ScriptedSources>(now), 0);
  status->updateCurrentStatus();
  EXPECT_DOUBLE_EQ(status->celsius(), 30.5);
  EXPECT_NEAR(status->fahrenheit(), 86.9, 1e-9);
  EXPECT_DOUBLE_EQ(status->batteryTemperature(), 30.5);
  EXPECT_DOUBLE_EQ(status->batteryWatt(), -18.0);
  EXPECT_FLOAT_EQ(static_cast<float>(status->watt()), -18.0f);
  EXPECT_EQ(status->batteryAmperage(), -1500);
  EXPECT_TRUE(status->isHasBattery());
}

TEST(BatteryStatusTest, UnpluggedTimeCountsMinutesSinceUnplugging) {
  auto now = std::make_shared<PowerSnapshot>();
  now->timeRemaining = 7200;
  now->sources = nlohmann::json::array({source(60, 100, true, false)});
  auto status = BatteryStatus::withSources(std::make_unique<ScriptedSources>(now), 0);
  status->updateStatus();
  for (int minute = 0; minute < 187; ++minute) status->unpluggedTimerTick();
  EXPECT_EQ(status->timeSinceUnpluggedTranslated(), "3:07");
  // Plugged in and out again: the count starts over.
  now->timeRemaining = -2;
  now->sources = nlohmann::json::array({source(60, 100, false, true, 30)});
  status->updateStatus();
  now->timeRemaining = 7200;
  now->sources = nlohmann::json::array({source(60, 100, true, false)});
  status->updateStatus();
  EXPECT_EQ(status->timeSinceUnpluggedTranslated(), "0:00");
}

TEST(BatteryStatusTest, CheckReportsOnlyChanges) {
  auto now = std::make_shared<PowerSnapshot>();
  now->timeRemaining = 3600;
  now->sources = nlohmann::json::array({source(30, 100, true, false)});
  auto status = BatteryStatus::withSources(std::make_unique<ScriptedSources>(now), 0);
  auto calls = std::make_shared<BatteryCalls>();
  status->setDelegate(calls);
  status->checkForChange();
  EXPECT_EQ(calls->calls.size(), 1u);
  status->checkForChange();
  EXPECT_EQ(calls->calls.size(), 1u);
  now->timeRemaining = 3000;
  status->checkForChange();
  EXPECT_EQ(calls->calls.back(), "remaining 0:50");
}

TEST(BatteryStatusTest, NoBatteryNoInformation) {
  auto status = BatteryStatus::withSources(
      std::make_unique<ScriptedSources>(std::make_shared<PowerSnapshot>()), 0);
  EXPECT_FALSE(status->isHasBattery());
  status->updateCurrentStatus();
  EXPECT_EQ(status->capacity(), 0);
  EXPECT_EQ(status->batteryMaxCapacity(), nullptr);
}

}  // namespace battery_status_test
}  // namespace vexa
