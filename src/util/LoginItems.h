#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vexa {

// The user's list of programs started at login, as the desktop keeps it.
//
// This is also where a sandboxed host would plug in: inside a sandbox the list is not ours to
// read, and the desktop's Background portal (RequestBackground with "autostart") only turns
// starting at login on or off for the calling application. Such a port would answer list() with
// at most the one entry it last asked for, and remove() would ask the portal to turn it off.
class LoginItems {
 public:
  struct Item {
    std::string handle;  // what remove() needs to find the entry again
    std::string path;    // the program the entry starts, as a real path
  };

  virtual ~LoginItems() = default;

  // False when the list cannot be read or changed at all; nothing else is asked then.
  virtual bool available() = 0;
  // The entries in effect, in the list's order; entries that resolve to no program are left out.
  virtual std::vector<Item> list() = 0;
  // Adds an entry starting `path` at the end of the list.
  virtual void append(const std::string& path) = 0;
  // Takes the entry out of effect.
  virtual void remove(const Item& item) = 0;

  // The desktop's own list (XDG autostart entries on Linux). Provided by the platform adapter.
  static std::unique_ptr<LoginItems> system();
};

}  // namespace vexa
