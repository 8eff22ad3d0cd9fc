#include <gio/gio.h>

#include "privileged/PlatformFiles.h"

namespace vexa {

bool platformMoveToTrash(const std::string& path) {
  g_autoptr(GFile) file = g_file_new_for_path(path.c_str());
  return g_file_trash(file, nullptr, nullptr);
}

}  // namespace vexa
