#include "vexa/util/AppIdentity.h"

#include <errno.h>

#include <mutex>

namespace vexa {

namespace {

std::mutex& identityMutex() {
  static std::mutex* m = new std::mutex;
  return *m;
}

std::string& storedName() {
  static std::string* n = new std::string;
  return *n;
}

}  // namespace

std::string AppIdentity::name() {
  std::lock_guard lock(identityMutex());
  if (!storedName().empty()) return storedName();
  const char* own = program_invocation_short_name;
  return own && *own ? own : "vexa-monitor";
}

void AppIdentity::setName(const std::string& name) {
  std::lock_guard lock(identityMutex());
  // A name is used as one path component.
  std::string clean;
  for (char c : name) clean += (c == '/' ? '_' : c);
  if (clean == "." || clean == "..") clean.clear();
  storedName() = clean;
}

}  // namespace vexa
