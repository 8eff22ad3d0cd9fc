#include "monitors/TrashFolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "util/FolderWalk.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

namespace {

constexpr uint64_t kBlockSize = 512;

uint64_t allocated(const struct stat& st) {
  return static_cast<uint64_t>(st.st_blocks) * kBlockSize;
}

const char* typeName(mode_t mode) {
  if (S_ISDIR(mode)) return "NSFileTypeDirectory";
  if (S_ISLNK(mode)) return "NSFileTypeSymbolicLink";
  if (S_ISREG(mode)) return "NSFileTypeRegular";
  if (S_ISSOCK(mode)) return "NSFileTypeSocket";
  if (S_ISCHR(mode)) return "NSFileTypeCharacterSpecial";
  if (S_ISBLK(mode)) return "NSFileTypeBlockSpecial";
  return "NSFileTypeUnknown";
}

}  // namespace

std::string TrashFolder::prepare() {
  const auto files = MonitorString::userTrashPath();
  if (!files || files->empty()) return {};
  const std::string trash = files->substr(0, files->find_last_of('/'));
  for (const std::string& folder : {trash, *files, trash + "/info"}) ::mkdir(folder.c_str(), 0700);
  return *files;
}

std::optional<std::pair<uint64_t, uint64_t>> TrashFolder::folderIdentity(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return std::nullopt;
  return std::make_pair(static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino));
}

uint64_t TrashFolder::sizeOfTrashes(const std::vector<std::string>& folders) {
  uint64_t total = 0;
  for (const auto& folder : folders) {
    if (folderIdentity(folder)) total += folderSizeAtPath(folder);
  }
  return total;
}

uint64_t TrashFolder::sizeOfFileWithPath(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return 0;
  return S_ISDIR(st.st_mode) ? folderSizeAtPath(path) : allocated(st);
}

uint64_t TrashFolder::folderSizeAtPath(const std::string& folder) {
  uint64_t total = 0;
  FolderWalk::walk(
      folder, folder,
      [&](const FolderWalk::Entry& entry) {
        struct stat own {
        }, target{};
        if (::fstatat(entry.folderFd, entry.name.c_str(), &own, AT_SYMLINK_NOFOLLOW) != 0) {
          return FolderWalk::Step::Next;
        }
        // A link whose target is missing counts nothing; only links need the second look.
        if (S_ISLNK(own.st_mode) &&
            ::fstatat(entry.folderFd, entry.name.c_str(), &target, 0) != 0) {
          return FolderWalk::Step::Next;
        }
        total += allocated(own);
        return S_ISDIR(own.st_mode) ? FolderWalk::Step::Enter : FolderWalk::Step::Next;
      },
      nullptr);
  return total;
}

nlohmann::json TrashFolder::commonAttributesOfFile(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return nlohmann::json::object();
  return {{"NSFileType", typeName(st.st_mode)},
          {"NSFileSize", static_cast<uint64_t>(st.st_size)},
          {"NSFileAllocatedSize", allocated(st)}};
}

}  // namespace vexa
