#include "vexa/monitors/WatchApplication.h"

#include <algorithm>
#include <atomic>
#include <cctype>

#include "monitors/AppBundle.h"
#include "monitors/AppWalkHook.h"
#include "monitors/ApplicationFilters.h"
#include "monitors/PathList.h"
#include "monitors/ScanTarget.h"
#include "monitors/WeakQueueDelegate.h"
#include "util/PathName.h"
#include "vexa/events/FSWatchQueue.h"
#include "vexa/monitors/WatchTrash.h"
#include "vexa/util/MonitorString.h"
#include "vexa/util/Utilities.h"

namespace vexa {

namespace {

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string withoutExtension(const std::string& name) {
  const auto dot = name.find_last_of('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

std::set<std::string> systemNames() {
  std::set<std::string> names;
  const nlohmann::json filter = ApplicationFilters::systemFilter();
  for (const auto& name : filter) {
    if (name.is_string()) names.insert(lowerCase(name.get<std::string>()));
  }
  return names;
}

// Whether `path` lies under `prefix`, in any letter case (a plain text prefix).
bool beginsWithIgnoringCase(const std::string& path, const std::string& prefix) {
  return path.size() >= prefix.size() &&
         lowerCase(path.substr(0, prefix.size())) == lowerCase(prefix);
}

}  // namespace

WatchApplication& WatchApplication::shared() {
  static auto* instance =
      new std::shared_ptr<WatchApplication>(create(MonitorString::applicationPath().value_or("")));
  return **instance;
}

std::shared_ptr<WatchApplication> WatchApplication::create(std::string appRootPath) {
  std::shared_ptr<WatchApplication> watch(new WatchApplication(std::move(appRootPath)));
  if (watch->queue_) {
    watch->queue_->setDelegate(
        std::make_shared<WeakQueueDelegate>(std::weak_ptr<WatchApplication>(watch)));
  }
  return watch;
}

WatchApplication::WatchApplication(std::string appRootPath)
    : appRootPath_(PathName::withoutTrailingSlashes(std::move(appRootPath))),
      queue_(FSWatchQueue::create()),
      systemNames_(systemNames()) {
  AppWalkHook::install();
}

WatchApplication::~WatchApplication() = default;

std::shared_ptr<ApplicationsWatchDelegate> WatchApplication::delegate() const {
  std::lock_guard lock(lock_);
  return delegate_;
}

void WatchApplication::setDelegate(std::shared_ptr<ApplicationsWatchDelegate> delegate) {
  std::lock_guard lock(lock_);
  delegate_ = std::move(delegate);
}

void WatchApplication::startWatch(int* stop) {
  {
    std::lock_guard lock(lock_);
    isStop_ = stop;
  }
  // Renames too, so that the folder moved into the Trash is told.
  if (queue_ && !appRootPath_.empty()) {
    queue_->addPath(appRootPath_, watchqueue::kWrite | watchqueue::kRename);
  }
  walk(appRootPath_, stop);
  std::lock_guard lock(lock_);
  appendNew(watchFolders_, currFolders_);
  appendNew(watchApps_, currApps_);
  clearCurrent();
}

void WatchApplication::stopWatch() {
  if (queue_) queue_->removePath(appRootPath_);
  int* stop = nullptr;
  {
    std::lock_guard lock(lock_);
    watchApps_.clear();
    watchFolders_.clear();
    stop = isStop_;
  }
  if (stop) std::atomic_ref<int>(*stop).store(1, std::memory_order_relaxed);
}

void WatchApplication::walk(const std::string& path, int* stop) {
  std::vector<char> root(path.begin(), path.end());
  root.push_back(0);
  const ScanTarget<WatchApplication> target(*this);
  trv_all_app(root.data(), 1, applicationcallback, stop);
}

std::vector<std::string> WatchApplication::appendNew(std::vector<std::string>& list,
                                                     const std::vector<std::string>& found) {
  std::unordered_set<std::string> known(list.begin(), list.end());
  std::vector<std::string> added;
  for (const auto& path : found) {
    if (known.insert(path).second) {
      list.push_back(path);
      added.push_back(path);
    }
  }
  return added;
}

void WatchApplication::clearCurrent() {
  currApps_.clear();
  currFolders_.clear();
  currAppsSeen_.clear();
  currFoldersSeen_.clear();
}

void WatchApplication::fillAppByPath(const std::string& path) {
  std::optional<std::string> name = AppBundle::displayNameOf(path);
  if (MonitorString::isNilOrEmpty(name)) name = withoutExtension(PathName::lastComponent(path));
  if (systemNames_.count(withoutExtension(lowerCase(*name)))) return;
  std::lock_guard lock(lock_);
  if (currAppsSeen_.insert(path).second) currApps_.push_back(path);
}

void WatchApplication::fillFolderByPath(const std::string& path) {
  std::lock_guard lock(lock_);
  if (currFoldersSeen_.insert(path).second) currFolders_.push_back(path);
}

std::vector<std::string> WatchApplication::watchApps() const {
  std::lock_guard lock(lock_);
  return watchApps_;
}

std::vector<std::string> WatchApplication::watchFolders() const {
  std::lock_guard lock(lock_);
  return watchFolders_;
}

void WatchApplication::watchQueueReceivedNotification(FSWatchQueue& queue, const std::string& name,
                                                      const std::string& path) {
  if (!PathName::exists(path)) {
    queue.removePath(path);
    return;
  }
  if (name != WatchQueueWriteNotification) return;
  int* stop = nullptr;
  {
    std::lock_guard lock(lock_);
    stop = isStop_;
  }
  walk(path, stop);
  std::vector<std::string> added;
  std::shared_ptr<ApplicationsWatchDelegate> delegate;
  {
    std::lock_guard lock(lock_);
    const auto under = [&](const std::string& known) {
      return beginsWithIgnoringCase(known, path);
    };
    if (std::any_of(watchApps_.begin(), watchApps_.end(), under)) {
      std::erase_if(watchApps_, [&](const std::string& known) {
        return under(known) && currAppsSeen_.count(known) == 0;
      });
    }
    added = appendNew(watchApps_, currApps_);
    // Folders diff against the whole list, applications only against the part under the path.
    if (std::any_of(watchFolders_.begin(), watchFolders_.end(), under)) {
      std::erase_if(watchFolders_,
                    [&](const std::string& known) { return currFoldersSeen_.count(known) == 0; });
    }
    appendNew(watchFolders_, currFolders_);
    clearCurrent();
    delegate = delegate_;
  }
  if (!delegate) return;
  for (const auto& app : added) delegate->appAdded(app);
}

std::vector<std::string>& WatchApplication::listFor(const std::string& path) {
  return AppBundle::hasApplicationName(path) ? watchApps_ : watchFolders_;
}

void WatchApplication::watchQueueRename(FSWatchQueue& queue, const std::string& newPath,
                                        const std::string& oldPath) {
  (void)queue;
  if (newPath == oldPath) return;
  std::lock_guard lock(lock_);
  auto& list = listFor(oldPath);
  PathList::remove(list, oldPath);
  PathList::add(list, newPath);
}

void WatchApplication::watchQueueRemoveToTrash(FSWatchQueue& queue, const std::string& trashedPath,
                                               const std::string& oldPath) {
  (void)queue;
  const bool application = AppBundle::hasApplicationName(oldPath);
  std::shared_ptr<ApplicationsWatchDelegate> delegate;
  {
    std::lock_guard lock(lock_);
    PathList::remove(listFor(oldPath), oldPath);
    delegate = delegate_;
  }
  if (!application) WatchTrash::shared().moveToTrash(trashedPath);
  if (delegate) delegate->movedToTrash(trashedPath);
}

void WatchApplication::watchQueueDeleted(FSWatchQueue& queue, const std::string& path) {
  (void)queue;
  std::lock_guard lock(lock_);
  PathList::remove(listFor(path), path);
}

}  // namespace vexa

extern "C" void applicationcallback(const char* path, int kind) {
  if (!path) return;
  vexa::WatchApplication& watch = vexa::ScanTarget<vexa::WatchApplication>::get();
  if (kind == 1) {
    watch.fillAppByPath(path);
  } else {
    watch.fillFolderByPath(path);
  }
}
