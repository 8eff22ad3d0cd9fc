// monitors-probe: the Trash and application-folder figures the monitor benchmarks compare.
//   monitors-probe size DIR                the Trash size of DIR (allocated bytes below it) with
//                                          the seconds it took
//   monitors-probe fill-trash TRASH N      N trashed files of 100 bytes in TRASH/files, each with
//                                          its TRASH/info/NAME.trashinfo
//   monitors-probe make-apps DIR E B       E desktop entries and B ".app" bundles under DIR
//   monitors-probe rescan DIR RUNS         the application-folder watcher's rescan of DIR after a
//                                          write, RUNS times; prints the applications found and
//                                          the median seconds
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "vexa/events/FSWatchQueue.h"
#include "vexa/events/WatchQueueNotifications.h"
#include "vexa/monitors/MonitorTrash.h"
#include "vexa/monitors/WatchApplication.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

double since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void write(const std::string& path, const std::string& contents) {
  std::ofstream(path, std::ios::binary) << contents;
}

int size(const std::string& dir) {
  const auto start = Clock::now();
  const uint64_t bytes = vexa::MonitorTrash::sizeOfFileWithPath(dir);
  std::printf("bytes=%llu seconds=%.6f\n", static_cast<unsigned long long>(bytes), since(start));
  return 0;
}

int fillTrash(const std::string& trash, int count) {
  fs::create_directories(trash + "/files");
  fs::create_directories(trash + "/info");
  const std::string payload(100, 't');
  for (int i = 0; i < count; ++i) {
    const std::string name = "trashed-" + std::to_string(i) + ".txt";
    write(trash + "/files/" + name, payload);
    write(trash + "/info/" + name + ".trashinfo",
          "[Trash Info]\nPath=/home/user/" + name + "\nDeletionDate=2026-01-01T00:00:00\n");
  }
  return 0;
}

// Desktop entries flat in DIR, as a system applications folder holds them; bundles spread over
// ten sub-folders.
int makeApps(const std::string& dir, int entries, int bundles) {
  fs::create_directories(dir);
  for (int i = 0; i < entries; ++i) {
    const std::string id = "org.example.App" + std::to_string(i);
    write(dir + "/" + id + ".desktop",
          "[Desktop Entry]\nType=Application\nName=Example App " + std::to_string(i) +
              "\nName[de]=Beispiel " + std::to_string(i) +
              "\nComment=An application\nExec=/usr/bin/app" + std::to_string(i) +
              " %U\nIcon=" + id + "\nCategories=Utility;\nTerminal=false\n");
  }
  for (int i = 0; i < bundles; ++i) {
    const std::string bundle =
        dir + "/group" + std::to_string(i % 10) + "/Bundle" + std::to_string(i) + ".app";
    fs::create_directories(bundle + "/Contents/MacOS");
    write(bundle + "/Contents/Info.plist",
          "<?xml version=\"1.0\"?>\n<plist version=\"1.0\"><dict><key>CFBundleName</key><string>"
          "Bundle" +
              std::to_string(i) + "</string></dict></plist>\n");
    write(bundle + "/Contents/MacOS/Bundle" + std::to_string(i), "#!/bin/sh\n");
  }
  return 0;
}

int rescan(const std::string& dir, int runs) {
  auto queue = vexa::FSWatchQueue::create();
  auto watch = vexa::WatchApplication::create(dir);
  static int stop = 0;
  watch->startWatch(&stop);
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) {
    const auto start = Clock::now();
    watch->watchQueueReceivedNotification(*queue, vexa::WatchQueueWriteNotification, dir);
    times.push_back(since(start));
  }
  std::sort(times.begin(), times.end());
  std::printf("apps=%zu seconds=%.6f\n", watch->watchApps().size(), times[times.size() / 2]);
  watch->stopWatch();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "size" && argc == 3) return size(argv[2]);
  if (mode == "fill-trash" && argc == 4) return fillTrash(argv[2], std::atoi(argv[3]));
  if (mode == "make-apps" && argc == 5)
    return makeApps(argv[2], std::atoi(argv[3]), std::atoi(argv[4]));
  if (mode == "rescan" && argc == 4) return rescan(argv[2], std::max(1, std::atoi(argv[3])));
  std::fprintf(stderr,
               "usage: monitors-probe size DIR | fill-trash TRASH N | make-apps DIR E B | "
               "rescan DIR RUNS\n");
  return 2;
}
