// A probe for the stream benchmark (bench/events/stream-bench.sh).
//   watch-probe make-tree DIR DIRS FILES   a tree of DIRS folders (100 per parent) and FILES files
//   watch-probe burst DIR                  1,000 new folders of 10 files and 40,000 files spread
//                                          over existing folders; prints the files made
//   watch-probe watch DIR                  watches DIR recursively; prints "ready" with the set-up
//                                          time, then a line per batch with the files reported
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unordered_set>

#include "events/linux/InotifyWatcher.h"
#include "vexa/util/RunLoop.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

long rssKb() {
  std::ifstream in("/proc/self/status");
  std::string key;
  long value = 0;
  while (in >> key) {
    if (key == "VmRSS:") {
      in >> value;
      return value;
    }
    in.ignore(1 << 20, '\n');
  }
  return 0;
}

double wallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void touch(const std::string& path) { std::ofstream(path).put('x'); }

int makeTree(const std::string& root, int dirs, int files) {
  int made = 0;
  for (int p = 0; made < dirs; ++p) {
    for (int c = 0; c < 100 && made < dirs; ++c, ++made) {
      fs::create_directories(root + "/p" + std::to_string(p) + "/c" + std::to_string(c));
    }
  }
  for (int i = 0; i < files; ++i) {
    const int d = i % dirs;
    touch(root + "/p" + std::to_string(d / 100) + "/c" + std::to_string(d % 100) + "/f" +
          std::to_string(i));
  }
  return 0;
}

int burst(const std::string& root) {
  const std::string tag = std::to_string(getpid());
  int files = 0;
  for (int d = 0; d < 1000; ++d) {
    const std::string dir = root + "/p0/new" + tag + "-" + std::to_string(d);
    fs::create_directory(dir);
    for (int f = 0; f < 10; ++f, ++files) touch(dir + "/f" + std::to_string(f));
  }
  for (int i = 0; i < 40000; ++i, ++files) {
    const int d = i % 100;
    touch(root + "/p" + std::to_string(d) + "/c" + std::to_string(i % 100) + "/b" + tag + "-" +
          std::to_string(i));
  }
  std::printf("burst files=%d end=%.6f\n", files, wallNow());
  return 0;
}

int watch(const std::string& root) {
  signal(SIGTERM, [](int) { _exit(0); });
  const long rssBefore = rssKb();
  auto watcher = vexa::InotifyWatcher::create();
  std::unordered_set<std::string> files;
  size_t inNewFolders = 0;
  const auto start = Clock::now();
  watcher->subscribe(
      {root}, vexa::kEventIdSinceNow, 1.0, vexa::RunLoop::main(),
      [&](const std::vector<vexa::FsEvent>& batch) {
        for (const auto& e : batch) {
          if ((e.flags & vexa::fsevent::kItemCreated) && (e.flags & vexa::fsevent::kItemIsFile) &&
              files.insert(e.path).second && e.path.find("/p0/new") != std::string::npos) {
            ++inNewFolders;
          }
        }
        std::printf("batch files=%zu new_folder_files=%zu at=%.6f\n", files.size(), inNewFolders,
                    wallNow());
        std::fflush(stdout);
      });
  watcher->waitUntilSettled(std::chrono::minutes(5));
  const double setup = std::chrono::duration<double>(Clock::now() - start).count();
  std::printf("ready seconds=%.3f watches=%zu rss_kb=%ld\n", setup, watcher->watchCount(),
              rssKb() - rssBefore);
  std::fflush(stdout);
  vexa::RunLoop::main().run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 2 ? argv[1] : "";
  if (mode == "make-tree" && argc == 5)
    return makeTree(argv[2], std::atoi(argv[3]), std::atoi(argv[4]));
  if (mode == "burst") return burst(argv[2]);
  if (mode == "watch") return watch(argv[2]);
  std::fprintf(stderr, "usage: watch-probe make-tree DIR DIRS FILES | burst DIR | watch DIR\n");
  return 2;
}
