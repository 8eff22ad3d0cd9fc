#include "util/RunGuarded.h"

#include <exception>

#include "vexa/util/SystemLog.h"

namespace vexa {

void runGuarded(const char* where, const std::function<void()>& fn) {
  try {
    fn();
  } catch (const std::exception& e) {
    SystemLog::log("%s: work item threw: %s", where, e.what());
  } catch (...) {
    SystemLog::log("%s: work item threw an unknown exception", where);
  }
}

}  // namespace vexa
