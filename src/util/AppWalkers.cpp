#include <dirent.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "util/ApplicationFileTest.h"
#include "util/FolderWalk.h"
#include "vexa/util/Utilities.h"

namespace vexa {

namespace {

std::atomic<ApplicationFileTest::Test> installedTest{nullptr};

constexpr int kDirectoryEntry = 4;
constexpr int kApplication = 1;
constexpr int kFolder = 0;

// The walk both walkers share: `joinRoot` is the text the entries' paths start with.
void walkApplications(const char* path, const std::string& joinRoot, app_walk_callback callback,
                      int* stop) {
  struct stat st {};
  if (!path || ::stat(path, &st) != 0 || !S_ISDIR(st.st_mode)) return;
  auto report = [&](const std::string& found, int kind) {
    if (callback) callback(found.c_str(), kind);
  };
  const auto visit = [&](const FolderWalk::Entry& entry) {
    if (FolderWalk::stopRequested(stop)) return FolderWalk::Step::Stop;
    if (FolderWalk::isIgnoredName(entry.name)) return FolderWalk::Step::Next;
    if (entry.type == DT_REG) {
      if (ApplicationFileTest::accepts(entry.path.c_str())) report(entry.path, kApplication);
      return FolderWalk::Step::Next;
    }
    if (entry.type != DT_DIR) return FolderWalk::Step::Next;
    char* extension = extensions(entry.name.c_str(), kDirectoryEntry);
    if (!extension) {
      report(entry.path, kFolder);
      return FolderWalk::Step::Enter;
    }
    // A package of any other kind (".localized" included) is neither reported nor entered.
    if (std::strcmp(extension, "app") == 0) report(entry.path, kApplication);
    std::free(extension);
    return FolderWalk::Step::Next;
  };
  const auto failed = [](const std::string& folder) {
    std::printf("Error opening %s\n", folder.c_str());
  };
  if (!FolderWalk::walk(path, joinRoot, visit, failed)) failed(path);
}

}  // namespace

void ApplicationFileTest::install(Test test) { installedTest.store(test); }

bool ApplicationFileTest::accepts(const char* path) {
  const Test test = installedTest.load();
  return test && test(path);
}

}  // namespace vexa

extern "C" {

void trv_all_app(char* path, int root, app_walk_callback callback, int* stop) {
  if (path) vexa::walkApplications(path, path, callback, stop);
  if (root == 0) std::free(path);
}

void trv_sub_app(const char* path, app_walk_callback callback, int* stop) {
  if (!path) return;
  char* trimmed = const_cast<char*>(path);
  trim_path_last(&trimmed);
  const std::string joinRoot = trimmed;
  if (trimmed != path) std::free(trimmed);
  vexa::walkApplications(path, joinRoot, callback, stop);
}

}  // extern "C"
