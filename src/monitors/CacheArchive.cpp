#include "monitors/CacheArchive.h"

#include <span>

#include "util/PropertyList.h"
#include "vexa/util/MonitorData.h"

namespace vexa {

std::optional<std::string> CacheArchive::pack(const nlohmann::json& root, std::size_t limit) {
  auto archive = PropertyList::toBinary(root);
  if (!archive) return std::nullopt;
  auto packed = MonitorData::gzipData(std::string_view(*archive));
  if (!packed || packed->size() > limit) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(packed->data()), packed->size());
}

std::optional<nlohmann::json> CacheArchive::unpack(std::string_view bytes, std::size_t limit) {
  if (bytes.size() > limit) return std::nullopt;
  auto archive = MonitorData::ungzipData(
      std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), limit);
  if (!archive) return std::nullopt;
  auto root = PropertyList::parse(std::span<const uint8_t>(archive->data(), archive->size()));
  if (!root || !root->is_object()) return std::nullopt;
  return root;
}

}  // namespace vexa
