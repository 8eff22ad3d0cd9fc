#include "monitors/AppWalkHook.h"

#include "monitors/AppBundle.h"
#include "util/ApplicationFileTest.h"

namespace vexa {

void AppWalkHook::install() {
  ApplicationFileTest::install([](const char* path) { return AppBundle::isApplication(path); });
}

}  // namespace vexa
