#include "util/PathName.h"

#include <sys/stat.h>

namespace vexa {

std::string PathName::withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string PathName::lastComponent(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  if (path == "/") return "/";
  const size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string PathName::parent(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  const size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return ".";
  std::string_view folder = path.substr(0, slash);
  while (folder.size() > 1 && folder.back() == '/') folder.remove_suffix(1);
  return folder.empty() ? "/" : std::string(folder);
}

bool PathName::isWithin(std::string_view path, std::string_view folder) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  while (folder.size() > 1 && folder.back() == '/') folder.remove_suffix(1);
  if (folder.empty() || !hasPrefix(path, folder)) return false;
  return path.size() == folder.size() || folder == "/" || path[folder.size()] == '/';
}

bool PathName::exists(const std::string& path) {
  struct stat st {};
  return !path.empty() && ::stat(path.c_str(), &st) == 0;
}

bool PathName::isFolder(const std::string& path) {
  struct stat st {};
  return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool PathName::isRegularFile(const std::string& path) {
  struct stat st {};
  return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool PathName::entryExists(const std::string& path) {
  struct stat st {};
  return !path.empty() && ::lstat(path.c_str(), &st) == 0;
}

bool PathName::isFolderEntry(const std::string& path) {
  struct stat st {};
  return !path.empty() && ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace vexa
