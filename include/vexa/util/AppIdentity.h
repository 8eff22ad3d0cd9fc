#pragma once

#include <string>

#include "vexa/Export.h"

namespace vexa {

// The running application's name: it names the folders the library keeps per application (its
// preferences, its cache folder). By default the program's own name; a host sets its own
// before it starts any monitor. Safe from any thread.
class VEXA_EXPORT AppIdentity {
 public:
  static std::string name();
  static void setName(const std::string& name);
};

}  // namespace vexa
