#include "monitors/PathListCache.h"

#include <nlohmann/json.hpp>

#include "monitors/ApplicationCache.h"
#include "monitors/CacheArchive.h"
#include "util/AtomicFile.h"
#include "util/PathName.h"

namespace vexa {

using nlohmann::json;

std::optional<std::string> PathListCache::encode(const std::vector<std::string>& paths) const {
  return CacheArchive::pack(json{{key_, paths}}, kLimit);
}

std::optional<std::vector<std::string>> PathListCache::decode(std::string_view bytes) const {
  auto root = CacheArchive::unpack(bytes, kLimit);
  if (!root) return std::nullopt;
  auto list = root->find(key_);
  if (list == root->end() || !list->is_array()) return std::nullopt;
  std::vector<std::string> paths;
  paths.reserve(list->size());
  for (auto& item : *list) {
    if (item.is_string()) paths.push_back(std::move(item.get_ref<std::string&>()));
  }
  return paths;
}

PathListCache::Contents PathListCache::read(const std::string& file) const {
  if (!PathName::exists(file)) return {};
  // Reads regular files only, and opens nothing else: a pipe would block the open.
  if (!PathName::isRegularFile(file)) return {State::Undecodable, {}};
  auto bytes = AtomicFile::read(file, kLimit);
  auto paths = bytes ? decode(*bytes) : std::nullopt;
  if (!paths) return {State::Undecodable, {}};
  return {State::Read, std::move(*paths)};
}

bool PathListCache::write(const std::string& folder, const std::string& file,
                          const std::vector<std::string>& paths) const {
  if (folder.empty() || file.empty()) return false;
  auto bytes = encode(paths);
  if (!bytes) return false;
  ApplicationCache::makeFolder(folder);
  return !AtomicFile::write(file, *bytes, 0600);
}

}  // namespace vexa
