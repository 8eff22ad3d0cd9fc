#include "vexa/monitors/MonitorInstallPackage.h"

#include <array>

#include "monitors/CachedPathList.h"
#include "monitors/FindInventory.h"
#include "util/PathName.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

namespace {

constexpr std::array<const char*, 8> kExtensions = {"dmg",  "pkg",     "deb",        "rpm",
                                                    "snap", "flatpak", "flatpakref", "run"};

}  // namespace

MonitorInstallPackage& MonitorInstallPackage::shared() {
  static auto* instance = new std::shared_ptr<MonitorInstallPackage>(
      new MonitorInstallPackage(MonitorDispatch::shared(), XSocketServer::shared(), nullptr));
  return **instance;
}

std::shared_ptr<MonitorInstallPackage> MonitorInstallPackage::create(
    MonitorDispatch& dispatch, XSocketServer& server,
    std::shared_ptr<const FindInventory> inventory) {
  return std::shared_ptr<MonitorInstallPackage>(
      new MonitorInstallPackage(dispatch, server, std::move(inventory)));
}

MonitorInstallPackage::MonitorInstallPackage(MonitorDispatch& dispatch, XSocketServer& server,
                                             std::shared_ptr<const FindInventory> inventory)
    : dispatch_(dispatch),
      queue_(DispatchQueue::global()),
      inventory_(inventory ? std::move(inventory) : std::make_shared<FindInventory>()),
      list_(CachedPathList::create({kCacheFileName, "InstallPackage", "PackageAdd", "PackageRemove",
                                    "Add Package: ", "Remove Package: "},
                                   server)) {}

MonitorInstallPackage::~MonitorInstallPackage() = default;

std::string MonitorInstallPackage::cacheFolderPath() const { return list_->cacheFolderPath(); }

void MonitorInstallPackage::setCacheFolderPath(const std::string& folder) {
  list_->setCacheFolderPath(folder);
}

std::string MonitorInstallPackage::cacheFilePath() const { return list_->cacheFilePath(); }

std::vector<std::string> MonitorInstallPackage::packages() const { return list_->paths(); }

void MonitorInstallPackage::startMonitor() {
  std::string home = MonitorString::userHomePath();
  {
    std::lock_guard lock(fieldsMutex_);
    home_ = home;
  }
  list_->clear();
  list_->makeCacheFolder();
  unarchiver();
  dispatch_.addMonitorPath(home, shared_from_this());
}

void MonitorInstallPackage::stopMonotor() {
  std::string home;
  {
    std::lock_guard lock(fieldsMutex_);
    home = home_;
  }
  if (!home.empty()) dispatch_.removeMonitorPath(home, shared_from_this());
}

void MonitorInstallPackage::unarchiver() {
  if (list_->load() == CachedPathList::Loaded::Missing) {
    list_->addSilently(queryAllInstallPackage());
    archiver();
    return;
  }
  if (list_->paths().empty()) return;
  // Packages that appeared while no monitor ran are announced now.
  std::weak_ptr<MonitorInstallPackage> weak = weak_from_this();
  queue_.async([weak] {
    auto self = weak.lock();
    if (!self) return;
    for (const auto& path : self->queryAllInstallPackage()) {
      if (PathName::entryExists(path)) self->list_->add(path);
    }
  });
}

void MonitorInstallPackage::archiver() { list_->write(); }

bool MonitorInstallPackage::isInstallPackage(const std::string& path) {
  const size_t dot = path.rfind('.');
  const size_t slash = path.rfind('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return false;
  const std::string_view extension = std::string_view(path).substr(dot + 1);
  for (const char* candidate : kExtensions) {
    if (extension == candidate) return true;
  }
  return false;
}

std::vector<std::string> MonitorInstallPackage::queryAllInstallPackage() const {
  std::vector<std::string> patterns;
  patterns.reserve(kExtensions.size());
  for (const char* extension : kExtensions) patterns.push_back(std::string("*.") + extension);
  return inventory_->run(FindInventory::command(MonitorString::userHomePath(), "f", patterns));
}

void MonitorInstallPackage::addPackage(const std::string& path) { list_->addLater(path); }

void MonitorInstallPackage::removePackage(const std::string& path) { list_->removeLater(path); }

void MonitorInstallPackage::fileCreated(const std::string& path) {
  if (isInstallPackage(path)) addPackage(path);
}

void MonitorInstallPackage::fileMoveIn(const std::string& path) {
  if (isInstallPackage(path)) addPackage(path);
}

void MonitorInstallPackage::fileMoveOut(const std::string& path) {
  if (isInstallPackage(path)) removePackage(path);
}

void MonitorInstallPackage::fileMoveOrRename(const std::string& source, const std::string& target) {
  if (isInstallPackage(source)) {
    removePackage(source);
    addPackage(target);
  } else if (isInstallPackage(target)) {
    addPackage(target);
  }
}

void MonitorInstallPackage::fileRemove(const std::string& path) {
  if (isInstallPackage(path)) removePackage(path);
}

bool MonitorInstallPackage::hearsPath(const std::string& path) const {
  return isInstallPackage(path);
}

}  // namespace vexa
