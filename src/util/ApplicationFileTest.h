#pragma once

namespace vexa {

// Which regular files the application walkers (trv_all_app, trv_sub_app) report as
// applications. The walkers live below the layer that knows application files (desktop entries,
// AppImages), so that layer installs its test here; until it does, only ".app" folders count.
class ApplicationFileTest {
 public:
  using Test = bool (*)(const char* path);
  // Safe from any thread; a walk running meanwhile may use either test.
  static void install(Test test);
  static bool accepts(const char* path);
};

}  // namespace vexa
