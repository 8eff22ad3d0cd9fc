#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace vexa {

// The user's Trash as the Trash monitor and watcher measure it.
class TrashFolder {
 public:
  // Makes the Trash's "files" and "info" folders (0700) when they are missing; answers the
  // Trash's "files" folder, or nothing when the user has no Trash path.
  static std::string prepare();
  // (device, inode) of the folder at `path` when it is a folder and not a link.
  static std::optional<std::pair<uint64_t, uint64_t>> folderIdentity(const std::string& path);
  // The sum of folderSizeAtPath() over `folders`, those that are folders and not links (a Trash
  // replaced by a link or a file counts nothing).
  static uint64_t sizeOfTrashes(const std::vector<std::string>& folders);
  // A folder's size as folderSizeAtPath(); anything else's allocated bytes, the link itself for
  // a link; 0 when it cannot be read.
  static uint64_t sizeOfFileWithPath(const std::string& path);
  // The allocated bytes below `folder`, not its own: each entry's own allocation (a link's, not
  // its target's), and the contents of each sub-folder that is not a link. Hard links count
  // once per link; an entry whose link target is missing, and an unreadable folder's contents,
  // count nothing.
  static uint64_t folderSizeAtPath(const std::string& folder);
  // {"NSFileType": ..., "NSFileSize": ..., "NSFileAllocatedSize": ...} of the item itself (a
  // link not followed); empty when it cannot be read.
  static nlohmann::json commonAttributesOfFile(const std::string& path);
};

}  // namespace vexa
