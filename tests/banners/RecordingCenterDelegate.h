#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vexa/banners/UserNotification.h"
#include "vexa/banners/UserNotificationCenterDelegate.h"

namespace vexa::test {

// Lets every banner (or none) be shown and writes down what it hears: "deliver T",
// "destroyed T", "activate T <type>" (deliveries only when asked to).
struct RecordingCenterDelegate : UserNotificationCenterDelegate {
  using Banner = std::shared_ptr<UserNotification>;
  explicit RecordingCenterDelegate(bool deliveries = true) : logDeliveries(deliveries) {}

  std::optional<bool> userNotificationCenterShouldPresentNotification(UserNotificationCenter&,
                                                                      const Banner&) override {
    return answer;
  }
  void userNotificationCenterDidDeliverNotification(UserNotificationCenter&,
                                                    const Banner& b) override {
    if (logDeliveries) log.push_back("deliver " + b->title());
  }
  void userNotificationCenterDidDestroyedNotification(UserNotificationCenter&,
                                                      const Banner& b) override {
    log.push_back("destroyed " + b->title());
  }
  void userNotificationCenterDidActivateNotification(UserNotificationCenter&,
                                                     const Banner& b) override {
    log.push_back("activate " + b->title() + " " + std::to_string(b->activationType()));
  }

  const bool logDeliveries;
  std::optional<bool> answer = true;
  std::vector<std::string> log;
};

}  // namespace vexa::test
