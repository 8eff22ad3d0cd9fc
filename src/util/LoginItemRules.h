#pragma once

#include <string>

namespace vexa {

class LoginItems;

// What "start this program at login" means on a list of login items. Only `path` counts: an entry
// for a copy of the program elsewhere is someone else's.
class LoginItemRules {
 public:
  // True when some entry starts `path` (byte-equal real paths).
  static bool has(LoginItems& items, const std::string& path);
  // Appends an entry for `path` unless one is there.
  static void install(LoginItems& items, const std::string& path);
  // Removes every entry that starts `path`, those others added as well.
  static void remove(LoginItems& items, const std::string& path);
};

}  // namespace vexa
