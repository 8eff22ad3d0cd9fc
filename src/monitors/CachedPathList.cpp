#include "monitors/CachedPathList.h"

#include <algorithm>
#include <filesystem>

#include "monitors/ApplicationCache.h"
#include "util/PathName.h"
#include "vexa/messaging/Message.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/MonitorString.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

std::shared_ptr<CachedPathList> CachedPathList::create(Names names, XSocketServer& server) {
  std::shared_ptr<CachedPathList> list(new CachedPathList(std::move(names), server));
  std::weak_ptr<CachedPathList> weak = list;
  list->writer_ = std::make_unique<CoalescingTask>(DispatchQueue::global(), [weak] {
    if (auto self = weak.lock()) self->write();
  });
  return list;
}

CachedPathList::CachedPathList(Names names, XSocketServer& server)
    : names_(std::move(names)),
      cache_(names_.cacheKey),
      announcer_(server, "vexa.monitors." + names_.cacheKey + ".host") {}

std::string CachedPathList::cacheFolderPath() const {
  std::lock_guard lock(lock_);
  return folder_;
}

void CachedPathList::setCacheFolderPath(const std::string& folder) {
  std::lock_guard lock(lock_);
  folder_ = folder;
  if (!folder.empty()) file_ = (std::filesystem::path(folder) / names_.fileName).string();
}

std::string CachedPathList::cacheFilePath() const {
  std::lock_guard lock(lock_);
  return file_;
}

void CachedPathList::makeCacheFolder() {
  if (cacheFolderPath().empty()) setCacheFolderPath(ApplicationCache::defaultFolder());
  ApplicationCache::makeFolder(cacheFolderPath());
}

CachedPathList::Loaded CachedPathList::load() {
  std::string file;
  {
    std::lock_guard lock(lock_);
    file = file_;
  }
  auto contents = cache_.read(file);
  if (contents.state == PathListCache::State::Undecodable) {
    SystemLog::log("unreadable cache %s removed", file.c_str());
    std::error_code ec;
    std::filesystem::remove_all(file, ec);
  }
  if (contents.state != PathListCache::State::Read) return Loaded::Missing;
  const size_t cached = contents.paths.size();
  std::vector<std::string> kept;
  for (auto& path : contents.paths) {
    if (PathName::entryExists(path)) kept.push_back(std::move(path));
  }
  {
    std::lock_guard lock(lock_);
    paths_.clear();
    index_.clear();
    for (auto& path : kept) {
      if (index_.insert(path).second) paths_.push_back(std::move(path));
    }
  }
  if (paths().size() != cached) write();
  return Loaded::Read;
}

void CachedPathList::addSilently(const std::vector<std::string>& paths) {
  std::lock_guard lock(lock_);
  for (const auto& path : paths) {
    if (index_.insert(path).second) paths_.push_back(path);
  }
}

bool CachedPathList::canCarry(const std::string& path) {
  return path.find('\0') == std::string::npos &&
         MonitorString::cstringToString(path.c_str()).has_value();
}

void CachedPathList::addLater(const std::string& path) {
  if (!canCarry(path)) return;
  std::weak_ptr<CachedPathList> weak = weak_from_this();
  DispatchQueue::global().async([weak, path] {
    auto self = weak.lock();
    if (self && PathName::entryExists(path)) self->add(path);
  });
}

void CachedPathList::removeLater(const std::string& path) {
  std::weak_ptr<CachedPathList> weak = weak_from_this();
  DispatchQueue::global().async([weak, path] {
    auto self = weak.lock();
    if (self && !PathName::entryExists(path)) self->remove(path);
  });
}

bool CachedPathList::add(const std::string& path) { return change(path, true); }

bool CachedPathList::remove(const std::string& path) { return change(path, false); }

bool CachedPathList::change(const std::string& path, bool adding) {
  const std::string& name = adding ? names_.addMessage : names_.removeMessage;
  auto send = announcer_.prepare(Message(name, {{"Path", path}}));
  {
    std::lock_guard lock(lock_);
    if (adding) {
      if (!index_.insert(path).second) return false;
      paths_.push_back(path);
    } else {
      if (index_.erase(path) == 0) return false;
      paths_.erase(std::find(paths_.begin(), paths_.end(), path));
    }
    announcer_.post(std::move(send));
  }
  const std::string& log = adding ? names_.addLog : names_.removeLog;
  if (!log.empty()) SystemLog::write(log + path);
  writer_->request();
  return true;
}

void CachedPathList::announce(const std::string& name, const std::string& path) {
  announcer_.post(announcer_.prepare(Message(name, {{"Path", path}})));
}

bool CachedPathList::contains(const std::string& path) const {
  std::lock_guard lock(lock_);
  return index_.count(path) > 0;
}

void CachedPathList::clear() {
  std::lock_guard lock(lock_);
  paths_.clear();
  index_.clear();
}

std::vector<std::string> CachedPathList::paths() const {
  std::lock_guard lock(lock_);
  return paths_;
}

void CachedPathList::write() {
  std::lock_guard writing(writeMutex_);
  std::vector<std::string> snapshot;
  std::string folder, file;
  {
    std::lock_guard lock(lock_);
    snapshot = paths_;
    folder = folder_;
    file = file_;
  }
  cache_.write(folder, file, snapshot);
}

}  // namespace vexa
