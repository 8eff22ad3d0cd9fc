#include "vexa/util/SystemLog.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <vector>

#include "util/SyslogBackend.h"

namespace vexa {

namespace {

struct LogState {
  std::mutex mutex;
  SystemLog::Sink sink;
  bool mirror = false;
};

LogState& state() {
  static LogState* s = new LogState;  // used by threads that may outlive static destructors
  return *s;
}

std::string formatted(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int needed = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string message;
  if (needed > 0) {
    std::vector<char> buffer(static_cast<size_t>(needed) + 1);
    std::vsnprintf(buffer.data(), buffer.size(), format, args);
    message.assign(buffer.data(), static_cast<size_t>(needed));
  }
  return message;
}

}  // namespace

void SystemLog::log(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string message = formatted(format, args);
  va_end(args);
  write(message);
}

void SystemLog::debug(const char* format, ...) {
  LogState& s = state();
  {
    std::lock_guard lock(s.mutex);
    if (!s.sink && !syslogBackendWantsDebug()) return;
  }
  va_list args;
  va_start(args, format);
  std::string message = formatted(format, args);
  va_end(args);
  std::lock_guard lock(s.mutex);
  if (s.sink) {
    s.sink(message);
    return;
  }
  syslogBackendDebug(message);
}

void SystemLog::write(const std::string& message) {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  if (s.sink) {
    s.sink(message);
    return;
  }
  syslogBackendWrite(message, s.mirror);
}

void SystemLog::setSink(Sink sink) {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  s.sink = std::move(sink);
}

void SystemLog::setMirrorToStderr(bool mirror) {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  s.mirror = mirror;
}

}  // namespace vexa
