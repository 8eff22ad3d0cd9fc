#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace vexa {

// The search-index attributes of an item, computed from the file system alone:
//   "kMDItemKind"                 "folder" or "document" (whether an item is an application
//                                 is for the caller to say: that takes reading it)
//   "kMDItemDisplayName"          the file's name
//   "kMDItemLogicalSize"          bytes of every regular file in it (the file's own size for a
//                                 file)
//   "kMDItemContentCreationDate"  birth time, seconds since 1970 (modification time where the
//                                 file system keeps none)
//   "kMDItemLastUsedDate"         access time, seconds since 1970
//   "kMDItemUseCount"             0: nothing counts launches
class ItemMetadata {
 public:
  // The named attributes that apply (unknown names are left out); empty when nothing exists at
  // the path. Symbolic links are followed for the item itself, never inside a folder.
  static std::optional<nlohmann::json> attributes(const std::string& path,
                                                  const std::vector<std::string>& names);
};

}  // namespace vexa
