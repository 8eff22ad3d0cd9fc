#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vexa {

// The ".hidden" list of one folder: the names of its items that GIO file managers do not show,
// one a line. Everything happens relative to a descriptor of the folder (O_PATH is enough) and
// no symbolic link is followed, not at the item, the list or the temporary file that replaces
// it: a caller that reached the folder safely (the root helper) is not redirected by links
// planted afterwards, and never copies the contents of a file a planted list links to.
//
// The descriptor is borrowed and must stay open while the object is used. Changes are
// serialized within the process; the list is replaced whole (a temporary file renamed over it),
// so readers see the old list or the new one, never a mix. Two processes changing the same
// list at once may lose one of the two changes. Safe from any thread.
class HiddenList {
 public:
  explicit HiddenList(int folderFd) noexcept : folder_(folderFd) {}

  // The names listed. Empty when there is no list; nothing when the list cannot be read or is
  // not a regular file (a link, a pipe) or is larger than 16 MiB.
  std::optional<std::vector<std::string>> names() const;
  // Whether the item is hidden: by a dot-name, or by being listed.
  bool isHidden(const std::string& name) const;
  // Lists `name` (or takes it off the list); an emptied list is removed. False when the folder
  // holds nothing called `name`, when `name` cannot be listed (empty, ".", "..", or holding a
  // "/" or a newline), when the list cannot be read (see names()) or written. A dot-name is
  // hidden by its name alone and the list is left as it is: hiding it answers true, un-hiding
  // it false.
  bool setHidden(const std::string& name, bool hidden) const;

 private:
  bool write(const std::vector<std::string>& names) const;

  int folder_;
};

}  // namespace vexa
