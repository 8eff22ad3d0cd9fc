// A probe for the watch-queue benchmark (bench/events/queue-bench.sh).
//   queue-probe watch DIR        watches the folder DIR for writes with an FSWatchQueue; prints
//                                "ready", then a line per write call-back with its wall time
//   queue-probe follow PATH      watches the item at PATH for renames; prints "ready", then a line
//                                per rename call-back
//   queue-probe burst DIR COUNT  creates and deletes COUNT files in DIR; prints its end time
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "vexa/events/FSWatchQueue.h"
#include "vexa/util/RunLoop.h"

namespace {

double wallSeconds() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

class Printer : public vexa::FSWatchQueueDelegate {
 public:
  void watchQueueReceivedNotification(vexa::FSWatchQueue&, const std::string&,
                                      const std::string&) override {
    print();
  }
  // A renamed item is followed to its new name, and told as such.
  void watchQueueRename(vexa::FSWatchQueue&, const std::string&, const std::string&) override {
    print();
  }

 private:
  void print() {
    std::printf("callback n=%ld at=%.6f\n", ++count_, wallSeconds());
    std::fflush(stdout);
  }
  long count_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 2 ? argv[1] : "";
  if (mode == "watch" || mode == "follow") {
    auto queue = vexa::FSWatchQueue::create();
    if (!queue) return 1;
    queue->setDelegate(std::make_shared<Printer>());
    queue->addPath(argv[2], mode == "watch" ? vexa::watchqueue::kWrite : vexa::watchqueue::kRename);
    std::printf("ready\n");
    std::fflush(stdout);
    vexa::RunLoop::main().run();
    return 0;
  }
  if (mode == "burst" && argc > 3) {
    const std::string dir = argv[2];
    const long count = std::atol(argv[3]);
    for (long i = 0; i < count; ++i) {
      const std::string path = dir + "/f" + std::to_string(i);
      ::close(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
      ::unlink(path.c_str());
    }
    std::printf("end=%.6f\n", wallSeconds());
    return 0;
  }
  std::fprintf(stderr, "usage: queue-probe watch DIR | follow PATH | burst DIR COUNT\n");
  return 2;
}
