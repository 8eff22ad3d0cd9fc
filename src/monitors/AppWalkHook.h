#pragma once

namespace vexa {

// Lets the application walkers (trv_all_app, trv_sub_app) report the applications that are
// single files (desktop entries, AppImages) as AppBundle recognises them. Idempotent.
class AppWalkHook {
 public:
  static void install();
};

}  // namespace vexa
