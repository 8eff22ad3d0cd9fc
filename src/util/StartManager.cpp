#include "vexa/util/StartManager.h"

#include "util/LoginItemRules.h"
#include "util/LoginItems.h"
#include "util/MainBundle.h"

namespace vexa {

void StartManager::setLaunchAtLogin(bool value) {
  launchAtLogin_ = value;
  if (value) {
    installDaemon();
  } else {
    deleteDaemon();
  }
}

bool StartManager::hasDaemon() {
  auto items = LoginItems::system();
  return LoginItemRules::has(*items, MainBundle::path());
}

void StartManager::installDaemon() {
  auto items = LoginItems::system();
  LoginItemRules::install(*items, MainBundle::path());
}

void StartManager::deleteDaemon() {
  auto items = LoginItems::system();
  LoginItemRules::remove(*items, MainBundle::path());
}

}  // namespace vexa
