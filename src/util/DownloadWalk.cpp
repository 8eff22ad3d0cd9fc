#include <dirent.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "util/FolderWalk.h"
#include "vexa/util/SystemLog.h"
#include "vexa/util/Utilities.h"

namespace {

constexpr int kDirectoryEntry = 4;
constexpr int kFileEntry = 8;
// Safari's (a folder), Chrome's, Firefox's and Opera's partial downloads.
constexpr const char* kPartialExtensions[] = {"download", "crdownload", "part", "opdownload"};

bool isPartialExtension(const char* extension) {
  for (const char* partial : kPartialExtensions) {
    if (std::strcmp(partial, extension) == 0) return true;
  }
  return false;
}

}  // namespace

extern "C" {

void trv_sub_download(const char* path, download_walk_callback callback, int* stop) {
  struct stat st {};
  if (!path || ::stat(path, &st) != 0 || !S_ISDIR(st.st_mode)) return;
  const auto visit = [&](const vexa::FolderWalk::Entry& entry) {
    if (vexa::FolderWalk::stopRequested(stop)) return vexa::FolderWalk::Step::Stop;
    if (vexa::FolderWalk::isIgnoredName(entry.name)) return vexa::FolderWalk::Step::Next;
    vexa::SystemLog::debug("%s", entry.name.c_str());
    if (entry.type != DT_DIR && entry.type != DT_REG) return vexa::FolderWalk::Step::Next;
    // Only a bundle extension counts for a folder, so a folder is a partial download only as
    // Safari's "*.download".
    char* extension =
        extensions(entry.name.c_str(), entry.type == DT_DIR ? kDirectoryEntry : kFileEntry);
    if (extension && isPartialExtension(extension) && callback) callback(entry.path.c_str());
    std::free(extension);
    return vexa::FolderWalk::Step::Next;
  };
  const auto failed = [](const std::string& folder) {
    vexa::SystemLog::debug("Error opening %s", folder.c_str());
  };
  if (!vexa::FolderWalk::walk(path, path, visit, failed)) failed(path);
}

}  // extern "C"
