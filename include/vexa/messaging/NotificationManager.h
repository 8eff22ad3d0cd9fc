#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "vexa/Export.h"
#include "vexa/banners/UserNotificationCenterDelegate.h"

namespace vexa {

class AppLauncher;
class Image;
class XSocketServer;

// Posts the library's banners for the host and the agent, shows one banner of a kind at a time,
// and when the user answers an application-removal banner starts the host application and has
// it sent the removal report once it has connected.
//
// Posting and the centre's call-backs run on the centre's thread.
class VEXA_EXPORT NotificationManager : public UserNotificationCenterDelegate,
                                        public std::enable_shared_from_this<NotificationManager> {
 public:
  static constexpr const char* kRemovalIdentity = "MonitorApplication";

  // Over the default banner centre, the shared socket server and the desktop's launcher.
  static NotificationManager& shared();
  static std::shared_ptr<NotificationManager> create(UserNotificationCenter& center,
                                                     XSocketServer& server,
                                                     std::shared_ptr<AppLauncher> launcher);

  // The banners on screen, in delivery order.
  std::vector<std::shared_ptr<UserNotification>> showingItems() const;

  // Schedules a banner with an action button ("OK") and another ("Cancel"), titled in the
  // user's first language where the program carries a translation. `sender` is not used.
  void postNotification(const void* sender, std::shared_ptr<const Image> icon,
                        const std::string& title, const std::string& subTitle,
                        const std::string& describe, int64_t notifyType,
                        const std::string& appIdentity, const std::string& identity);
  // Starts the application with that identity without bringing it forward; false when there is
  // none or it did not start.
  bool openAppByBundleIdentifier(const std::string& identity);
  // Once the client of that identity has connected (at once when it is), has the installed-
  // application monitor send it the removal report. While one such request waits (a launch that
  // started nothing that connects), another adds none: the client gets one report.
  void sendRemoveMessageToClientwithIdentity(const std::string& identity);

  std::optional<bool> userNotificationCenterShouldPresentNotification(
      UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) override;
  void userNotificationCenterDidDeliverNotification(
      UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) override;
  void userNotificationCenterDidDestroyedNotification(
      UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) override;
  void userNotificationCenterDidActivateNotification(
      UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) override;

 private:
  NotificationManager(UserNotificationCenter& center, XSocketServer& server,
                      std::shared_ptr<AppLauncher> launcher);

  UserNotificationCenter& center_;
  XSocketServer& server_;
  const std::shared_ptr<AppLauncher> launcher_;
  mutable std::mutex mutex_;  // guards showingItems_, read from any thread
  std::vector<std::shared_ptr<UserNotification>> showingItems_;
};

}  // namespace vexa
