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

// The delegate's calls, as one text: "remaining 1:00; left 20%".
class BatteryCalls : public BatteryDelegate {
 public:
  void batteryCalculating(double percent) override {
    add("calculating " + std::to_string(static_cast<int>(percent)));
  }
  void batteryWithRemaining(const std::string& text) override { add("remaining " + text); }
  void batteryRemainingWithLeft(const std::string& text) override { add("left " + text); }
  void batteryCharged() override { add("batteryCharged"); }
  void charged() override { add("charged"); }
  void batteryChargingCalculating() override { add("charging calculating"); }
  void batteryChargingWithRemaining(const std::string& text) override { add("charging " + text); }
  std::string calls;

 private:
  void add(const std::string& call) { calls += (calls.empty() ? "" : "; ") + call; }
};

nlohmann::json source(double current, double max, bool onBattery, bool charging, int toFull = 0) {
  return {
      {"Is Present", true},      {"Current Capacity", current},
      {"Max Capacity", max},     {"Power Source State", onBattery ? "Battery Power" : "AC Power"},
      {"Is Charging", charging}, {"Time to Full Charge", toFull},
      {"BatteryHealth", "Good"}};
}

// A battery status over scripted sources, telling a recorder.
class BatteryTest : public ::testing::Test {
 protected:
  void read(double timeRemaining, const nlohmann::json& source) {
    now_->timeRemaining = timeRemaining;
    now_->sources = nlohmann::json::array({source});
  }
  std::shared_ptr<PowerSnapshot> now_ = std::make_shared<PowerSnapshot>();
  std::shared_ptr<BatteryStatus> status_ =
      BatteryStatus::withSources(std::make_unique<ScriptedSources>(now_), 0);
  std::shared_ptr<BatteryCalls> calls_ = std::make_shared<BatteryCalls>();
};

struct RuleCase {
  const char* name;
  double timeRemaining;
  nlohmann::json source;
  int64_t percent;
  const char* calls;
};
void PrintTo(const RuleCase& c, std::ostream* os) { *os << c.name; }

class BatteryRulesTest : public BatteryTest, public ::testing::WithParamInterface<RuleCase> {};

TEST_P(BatteryRulesTest, TellsTheDelegateWhatTheChargeMeans) {
  status_->setDelegate(calls_);
  read(GetParam().timeRemaining, GetParam().source);
  status_->updateStatus();
  EXPECT_EQ(status_->currentPercent(), GetParam().percent);
  EXPECT_EQ(calls_->calls, GetParam().calls);
  // The same reading again says the times but no level.
  calls_->calls.clear();
  status_->updateStatus();
  EXPECT_EQ(calls_->calls.find("left "), std::string::npos) << calls_->calls;
}

INSTANTIATE_TEST_SUITE_P(
    Readings, BatteryRulesTest,
    ::testing::Values(
        RuleCase{"QuarterCharge", 3600, source(1000, 4000, true, false), 25, "remaining 1:00"},
        RuleCase{"CurrentTruncatedFirst", 3600, source(999.9, 4000, true, false), 24,
                 "remaining 1:00"},
        RuleCase{"OnBatteryAt21NoLevel", 5000, source(21, 100, true, false), 21, "remaining 1:23"},
        RuleCase{"OnBatteryAt20Level", 5000, source(20, 100, true, false), 20,
                 "remaining 1:23; left 20%"},
        RuleCase{"ChargingAt49NoLevel", -2, source(49, 100, false, true, 95), 49, "charging 1:35"},
        RuleCase{"ChargingAt50Level", -2, source(50, 100, false, true, 95), 50,
                 "charging 1:35; left 50%"},
        RuleCase{"ChargingTimeUnknown", -2, source(50, 100, false, true, 0), 50,
                 "charging calculating"},
        RuleCase{"OnBatteryStillCalculating", -1, source(70, 100, true, false), 70,
                 "calculating 70"},
        RuleCase{"FullOnMains", -2, source(100, 100, false, false), 100, "batteryCharged; charged"},
        RuleCase{"NotFullOnMains", -2, source(80, 100, false, false), 80, "batteryCharged"},
        RuleCase{"NotPresent", 3600,
                 R"({"Is Present": false, "Current Capacity": 5, "Max Capacity": 100})"_json, 0,
                 ""},
        RuleCase{"ZeroMaxCapacity", 3600, source(10, 0, true, false), 0, "remaining 1:00"},
        RuleCase{"WrongTypes", 3600, R"({"Is Present": "yes", "Current Capacity": "10"})"_json, 0,
                 ""}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(BatteryTest, AnnouncedChangesAreReadAndToldOnlyWhenNew) {
  read(3600, source(50, 100, true, false));
  auto sources = std::make_unique<ScriptedSources>(now_);
  ScriptedSources* announcer = sources.get();
  auto status = BatteryStatus::withSources(std::move(sources), 0);
  status->setDelegate(calls_);
  ASSERT_TRUE(announcer->announce);
  announcer->announce();
  EXPECT_EQ(calls_->calls, "remaining 1:00");
  calls_->calls.clear();
  announcer->announce();  // nothing changed
  EXPECT_EQ(calls_->calls, "");
  read(3600, source(20, 100, true, false));
  announcer->announce();
  EXPECT_EQ(calls_->calls, "remaining 1:00; left 20%");
  // Announcements after the watcher is gone reach nothing.
  auto late = announcer->announce;
  status.reset();
  late();
}

// checkForChange tells the delegate only what differs from its last look.
TEST_F(BatteryTest, CheckReportsOnlyChanges) {
  status_->setDelegate(calls_);
  read(3600, source(30, 100, true, false));
  status_->checkForChange();
  status_->checkForChange();
  EXPECT_EQ(calls_->calls, "remaining 1:00");
  now_->timeRemaining = 3000;
  status_->checkForChange();
  EXPECT_EQ(calls_->calls, "remaining 1:00; remaining 0:50");
}

TEST_F(BatteryTest, FiguresOfTheBatteryAndOfNone) {
  EXPECT_FALSE(status_->isHasBattery());
  status_->updateCurrentStatus();
  EXPECT_EQ(status_->capacity(), 0);
  EXPECT_EQ(status_->batteryMaxCapacity(), nullptr);

  now_->batteryProperties = {{"Temperature", 3050}, {"Voltage", 12000}, {"Amperage", -1500}};
  now_->batteryInfo = nlohmann::json::array({{{"Voltage", 12000}, {"Amperage", -1500}}});
  status_->updateCurrentStatus();
  EXPECT_DOUBLE_EQ(status_->celsius(), 30.5);
  EXPECT_NEAR(status_->fahrenheit(), 86.9, 1e-9);
  EXPECT_DOUBLE_EQ(status_->batteryTemperature(), 30.5);
  EXPECT_DOUBLE_EQ(status_->batteryWatt(), -18.0);
  EXPECT_FLOAT_EQ(static_cast<float>(status_->watt()), -18.0f);
  EXPECT_EQ(status_->batteryAmperage(), -1500);
  EXPECT_TRUE(status_->isHasBattery());
}

TEST_F(BatteryTest, UnpluggedTimeCountsMinutesSinceUnplugging) {
  read(7200, source(60, 100, true, false));
  status_->updateStatus();
  for (int minute = 0; minute < 187; ++minute) status_->unpluggedTimerTick();
  EXPECT_EQ(status_->timeSinceUnpluggedTranslated(), "3:07");
  // Plugged in and out again: the count starts over.
  read(-2, source(60, 100, false, true, 30));
  status_->updateStatus();
  read(7200, source(60, 100, true, false));
  status_->updateStatus();
  EXPECT_EQ(status_->timeSinceUnpluggedTranslated(), "0:00");
}

}  // namespace battery_status_test
}  // namespace vexa
