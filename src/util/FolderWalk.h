#pragma once

#include <functional>
#include <string>

namespace vexa {

// Walks a folder tree depth first through descriptors. Each folder is opened relative to its
// parent's descriptor, so neither the depth nor the length of a path is limited, and one folder
// descriptor is held at a time whatever the depth: a parent is reopened through ".." and must
// still be the folder that was left (else the walk ends there). Links are never entered.
class FolderWalk {
 public:
  // One entry of a folder: `type` is its DT_* type (DT_UNKNOWN resolved without following a
  // link); `folderFd` is the open folder holding it, valid during the visit only.
  struct Entry {
    int folderFd;
    const std::string& name;
    const std::string& path;
    unsigned char type;
  };
  enum class Step { Next, Enter, Stop };
  // Decides, for each entry in directory order, whether to enter it (folders only), go on or
  // stop the whole walk.
  using Visit = std::function<Step(const Entry&)>;
  using Failure = std::function<void(const std::string& path)>;

  // Walks the folder `root` (a link there is followed), naming its entries `joinRoot` + "/" +
  // name. False when the root cannot be opened; `failed` hears of each entered folder that
  // cannot be opened or read, and the walk goes on with its next sibling.
  static bool walk(const std::string& root, const std::string& joinRoot, const Visit& visit,
                   const Failure& failed);

  // The walkers' shared rules: a stop flag (may be null; set by any thread) reads 1, and a name
  // every walk passes over (dot-names and names ending in ".DS_Store").
  static bool stopRequested(int* stop);
  static bool isIgnoredName(const std::string& name);
};

}  // namespace vexa
