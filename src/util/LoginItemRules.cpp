#include "util/LoginItemRules.h"

#include "util/LoginItems.h"

namespace vexa {

bool LoginItemRules::has(LoginItems& items, const std::string& path) {
  if (path.empty() || !items.available()) return false;
  for (const auto& item : items.list()) {
    if (item.path == path) return true;
  }
  return false;
}

void LoginItemRules::install(LoginItems& items, const std::string& path) {
  if (path.empty() || !items.available() || has(items, path)) return;
  items.append(path);
}

void LoginItemRules::remove(LoginItems& items, const std::string& path) {
  if (path.empty() || !items.available()) return;
  for (const auto& item : items.list()) {
    if (item.path == path) items.remove(item);
  }
}

}  // namespace vexa
