#include "monitors/ItemMetadata.h"

#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>

#include <algorithm>

#include "util/PathName.h"

namespace vexa {

namespace {

thread_local uint64_t walkTotal = 0;

int addRegularFile(const char*, const struct stat* st, int type, struct FTW*) {
  if (type == FTW_F && S_ISREG(st->st_mode)) walkTotal += static_cast<uint64_t>(st->st_size);
  return 0;
}

uint64_t logicalSize(const std::string& path, const struct stat& st) {
  if (!S_ISDIR(st.st_mode)) return static_cast<uint64_t>(st.st_size);
  walkTotal = 0;
  // FTW_PHYS: links inside are not followed; FTW_MOUNT: stay on the item's file system.
  nftw(path.c_str(), addRegularFile, 32, FTW_PHYS | FTW_MOUNT);
  return walkTotal;
}

bool wants(const std::vector<std::string>& names, const char* name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

std::optional<nlohmann::json> ItemMetadata::attributes(const std::string& path,
                                                       const std::vector<std::string>& names) {
  struct statx sx {};
  if (path.empty() || statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0) {
    return std::nullopt;
  }
  struct stat st {};
  st.st_mode = sx.stx_mode;
  st.st_size = static_cast<off_t>(sx.stx_size);

  nlohmann::json out = nlohmann::json::object();
  if (wants(names, "kMDItemKind")) out["kMDItemKind"] = S_ISDIR(st.st_mode) ? "folder" : "document";
  if (wants(names, "kMDItemDisplayName")) out["kMDItemDisplayName"] = PathName::lastComponent(path);
  if (wants(names, "kMDItemLogicalSize")) out["kMDItemLogicalSize"] = logicalSize(path, st);
  if (wants(names, "kMDItemContentCreationDate")) {
    const bool hasBirth = (sx.stx_mask & STATX_BTIME) != 0 && sx.stx_btime.tv_sec != 0;
    out["kMDItemContentCreationDate"] = hasBirth ? sx.stx_btime.tv_sec : sx.stx_mtime.tv_sec;
  }
  if (wants(names, "kMDItemLastUsedDate")) out["kMDItemLastUsedDate"] = sx.stx_atime.tv_sec;
  if (wants(names, "kMDItemUseCount")) out["kMDItemUseCount"] = 0;
  return out;
}

}  // namespace vexa
