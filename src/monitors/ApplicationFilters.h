#pragma once

#include <nlohmann/json.hpp>

namespace vexa {

// The three tables that belong to the installed-application monitor's definition. Nothing in
// the library reads them; the host does. Their values are fixed: hosts match on them.
class ApplicationFilters {
 public:
  // The 78 system applications and system folders, keys "0" to "77" in table order.
  static nlohmann::json systemFilter();
  // What the clean-up leaves or takes for some vendors: {"LeftOverElement": {...},
  // "UninstallElement": {...}}.
  static nlohmann::json specialFilter();
  // Bundle-identifier prefix -> vendor group name.
  static nlohmann::json groupFilter();
};

}  // namespace vexa
