#include "monitors/DesktopEntrySummary.h"

#include <sys/stat.h>

#include <ctime>
#include <mutex>
#include <tuple>
#include <unordered_map>

#include "monitors/DesktopAppBundle.h"

namespace vexa {

namespace {

// Enough for every entry of the usual folders; past it the cache starts again.
constexpr size_t kMaxEntries = 16384;
// File times come from a clock that ticks every few milliseconds: a file changed within the
// same tick as it was read would look unchanged. Entries this recent are not kept.
constexpr time_t kSettledSeconds = 2;

using Stamp = std::tuple<dev_t, ino_t, off_t, long, long, long, long>;

struct Kept {
  Stamp stamp;
  DesktopEntrySummary summary;
};

std::mutex& cacheLock() {
  static auto* lock = new std::mutex;
  return *lock;
}

std::unordered_map<std::string, Kept>& cache() {
  static auto* kept = new std::unordered_map<std::string, Kept>;
  return *kept;
}

}  // namespace

DesktopEntrySummary DesktopEntrySummary::of(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return {};
  const Stamp stamp{st.st_dev,          st.st_ino,         st.st_size,        st.st_mtim.tv_sec,
                    st.st_mtim.tv_nsec, st.st_ctim.tv_sec, st.st_ctim.tv_nsec};
  {
    std::lock_guard lock(cacheLock());
    auto found = cache().find(path);
    if (found != cache().end() && found->second.stamp == stamp) return found->second.summary;
  }
  DesktopEntrySummary summary;
  if (auto entry = DesktopAppBundle::readApplicationEntry(path)) {
    summary.application = true;
    summary.displayName = entry->localized("Name", DesktopEntry::userLocales());
  }
  struct timespec now {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  if (now.tv_sec - st.st_ctim.tv_sec < kSettledSeconds) return summary;
  std::lock_guard lock(cacheLock());
  if (cache().size() >= kMaxEntries) cache().clear();
  cache()[path] = Kept{stamp, summary};
  return summary;
}

}  // namespace vexa
