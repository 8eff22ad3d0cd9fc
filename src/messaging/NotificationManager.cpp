#include "vexa/messaging/NotificationManager.h"

#include <algorithm>
#include <filesystem>

#include "messaging/AppLauncher.h"
#include "messaging/LocalizedStrings.h"
#include "util/MainBundle.h"
#include "vexa/banners/UserNotification.h"
#include "vexa/banners/UserNotificationCenter.h"
#include "vexa/messaging/XCommandHandler.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/util/AppIdentity.h"
#include "vexa/util/Preferences.h"

namespace vexa {

namespace {

// The translations the program carries: `<its folder>/../share/<application name>`.
LocalizedStrings buttonTitles() {
  const auto languages = Preferences::standard().stringArrayForKey("AppleLanguages");
  const std::string program = MainBundle::executable();
  if (!languages || languages->empty() || program.empty()) return {};
  const auto folder =
      std::filesystem::path(program).parent_path().parent_path() / "share" / AppIdentity::name();
  return LocalizedStrings::load(folder.string(), languages->front());
}

}  // namespace

NotificationManager& NotificationManager::shared() {
  static auto* instance = new std::shared_ptr<NotificationManager>(
      create(UserNotificationCenter::defaultUserNotificationCenter(), XSocketServer::shared(),
             AppLauncher::system()));
  return **instance;
}

std::shared_ptr<NotificationManager> NotificationManager::create(
    UserNotificationCenter& center, XSocketServer& server, std::shared_ptr<AppLauncher> launcher) {
  return std::shared_ptr<NotificationManager>(
      new NotificationManager(center, server, std::move(launcher)));
}

NotificationManager::NotificationManager(UserNotificationCenter& center, XSocketServer& server,
                                         std::shared_ptr<AppLauncher> launcher)
    : center_(center), server_(server), launcher_(std::move(launcher)) {}

std::vector<std::shared_ptr<UserNotification>> NotificationManager::showingItems() const {
  std::lock_guard lock(mutex_);
  return showingItems_;
}

void NotificationManager::postNotification(const void* sender, std::shared_ptr<const Image> icon,
                                           const std::string& title, const std::string& subTitle,
                                           const std::string& describe, int64_t notifyType,
                                           const std::string& appIdentity,
                                           const std::string& identity) {
  (void)sender;
  center_.setCenterType(2);
  auto banner = UserNotification::create();
  banner->setNotificationIcon(std::move(icon));
  banner->setTitle(title);
  banner->setSubtitle(subTitle);
  banner->setInformativeText(describe);
  banner->setNotifyType(notifyType);
  banner->setAppIdentity(appIdentity);
  banner->setIdentity(identity);
  banner->setHasActionButton(true);
  const LocalizedStrings titles = buttonTitles();
  banner->setActionButtonTitle(titles.localized("OK"));
  banner->setOtherButtonTitle(titles.localized("Cancel"));
  center_.setDelegate(weak_from_this());
  center_.scheduleNotification(banner);
}

bool NotificationManager::openAppByBundleIdentifier(const std::string& identity) {
  return launcher_ && launcher_->launch(identity);
}

void NotificationManager::sendRemoveMessageToClientwithIdentity(const std::string& identity) {
  XSocketServer* server = &server_;
  server_.whenIdentified(identity, [server](const std::shared_ptr<XConnectClient>& connection) {
    if (auto handler = server->commandHandler()) handler->sendRemoveAppToClient(connection);
  });
}

std::optional<bool> NotificationManager::userNotificationCenterShouldPresentNotification(
    UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) {
  (void)center;
  if (banner->notifyType() != 0) return true;
  if (banner->identity().empty()) return false;
  const auto showing = showingItems();
  return std::none_of(showing.begin(), showing.end(),
                      [&](const auto& shown) { return shown->identity() == banner->identity(); });
}

void NotificationManager::userNotificationCenterDidDeliverNotification(
    UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) {
  (void)center;
  std::lock_guard lock(mutex_);
  showingItems_.push_back(banner);
}

void NotificationManager::userNotificationCenterDidDestroyedNotification(
    UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) {
  {
    std::lock_guard lock(mutex_);
    std::erase(showingItems_, banner);
  }
  // Gone for good: the centre need not keep it (a long-running agent would keep every banner it
  // ever showed).
  if (!banner->deliveryRepeatInterval()) center.removeDeliveredNotification(banner);
}

void NotificationManager::userNotificationCenterDidActivateNotification(
    UserNotificationCenter& center, const std::shared_ptr<UserNotification>& banner) {
  (void)center;
  const int64_t type = banner->activationType();
  if (banner->identity() != kRemovalIdentity ||
      banner->appIdentity() != XSocketServer::kHostIdentity || (type != 1 && type != 2)) {
    return;
  }
  if (openAppByBundleIdentifier(banner->appIdentity())) {
    sendRemoveMessageToClientwithIdentity(banner->appIdentity());
  }
}

}  // namespace vexa
