#include <gio/gio.h>

#include "privileged/PlatformFiles.h"

namespace vexa {

bool platformMoveToTrash(const std::string& path) {
  GFile* file = g_file_new_for_path(path.c_str());
  GError* error = nullptr;
  const gboolean done = g_file_trash(file, nullptr, &error);
  if (error) g_error_free(error);
  g_object_unref(file);
  return done;
}

}  // namespace vexa
