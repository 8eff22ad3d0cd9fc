#include "monitors/ApplicationCache.h"

#include <algorithm>
#include <filesystem>

#include "monitors/CacheArchive.h"
#include "util/AtomicFile.h"
#include "util/PathName.h"
#include "util/XdgDirs.h"
#include "vexa/util/AppIdentity.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

using nlohmann::json;

std::optional<std::string> ApplicationCache::encode(const Records& records) {
  json installed = json::object();
  for (const auto& [path, app] : records) installed[path] = app->toJSON();
  return CacheArchive::pack(json{{kKey, std::move(installed)}}, kLimit);
}

std::optional<ApplicationCache::Records> ApplicationCache::decode(std::string_view bytes) {
  auto root = CacheArchive::unpack(bytes, kLimit);
  if (!root) return std::nullopt;
  auto installed = root->find(kKey);
  if (installed == root->end() || !installed->is_object()) return std::nullopt;
  Records records;
  for (const auto& [path, text] : installed->items()) {
    if (!text.is_string()) continue;
    if (auto app = AppFile::fromJSON(text.get_ref<const std::string&>())) {
      records.emplace(path, std::move(app));
    }
  }
  return records;
}

std::optional<ApplicationCache::Records> ApplicationCache::read(const std::string& file) {
  auto bytes = AtomicFile::read(file, kLimit);
  if (!bytes) return std::nullopt;
  return decode(*bytes);
}

bool ApplicationCache::write(const std::string& folder, const std::string& file,
                             const Records& records) {
  if (folder.empty() || file.empty()) return false;
  auto bytes = encode(records);
  if (!bytes) return false;
  makeFolder(folder);
  return !AtomicFile::write(file, *bytes, 0600);
}

std::string ApplicationCache::defaultFolder() {
  return MonitorString::cacheFolder().value_or(XdgDirs::cacheHome() + "/" + AppIdentity::name());
}

bool ApplicationCache::makeFolder(const std::string& folder) {
  if (PathName::entryExists(folder) && !PathName::isFolder(folder)) {
    std::error_code ec;
    std::filesystem::remove(folder, ec);
  }
  return AtomicFile::createFolders(folder);
}

void ApplicationCache::store(const std::string& folder, const std::string& file,
                             const Records& snapshot, uint64_t generation) {
  std::unique_lock lock(mutex_);
  if (generation > pendingGeneration_ && generation > stored_) {
    pendingGeneration_ = generation;
    pending_ = snapshot;
    pendingFolder_ = folder;
    pendingFile_ = file;
  }
  while (stored_ < generation) {
    if (writing_) {
      written_.wait(lock);
      continue;
    }
    writing_ = true;
    const uint64_t writing = pendingGeneration_;
    const Records records = std::move(pending_);
    const std::string to = std::move(pendingFolder_), name = std::move(pendingFile_);
    pending_.clear();
    lock.unlock();
    write(to, name, records);
    lock.lock();
    stored_ = std::max(stored_, writing);
    writing_ = false;
    written_.notify_all();
  }
}

}  // namespace vexa
