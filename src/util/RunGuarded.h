#pragma once

#include <functional>

namespace vexa {

// Runs fn, catching and logging anything it throws, so that no exception leaves a thread entry
// point or a run-loop callback. `where` names the caller in the log line.
void runGuarded(const char* where, const std::function<void()>& fn);

}  // namespace vexa
