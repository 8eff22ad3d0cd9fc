#include "util/ParallelFor.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

#include "vexa/util/DispatchQueue.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

void parallelFor(DispatchQueue& queue, std::size_t count,
                 const std::function<void(std::size_t)>& body, std::size_t perWorker) {
  if (count == 0) return;
  std::atomic<std::size_t> next{0};
  auto work = [&] {
    for (std::size_t i; (i = next.fetch_add(1)) < count;) {
      try {
        body(i);
      } catch (const std::exception& e) {
        SystemLog::log("parallel work item %zu failed: %s", i, e.what());
      } catch (...) {
        SystemLog::log("parallel work item %zu failed", i);
      }
    }
  };
  const std::size_t processors = std::max(1u, std::thread::hardware_concurrency());
  const std::size_t helpers =
      std::min<std::size_t>(processors - 1, count / std::max<std::size_t>(perWorker, 1));
  std::mutex doneMutex;
  std::condition_variable doneChanged;
  std::size_t running = helpers;
  for (std::size_t h = 0; h < helpers; ++h) {
    queue.async([&] {
      work();
      std::lock_guard lock(doneMutex);
      if (--running == 0) doneChanged.notify_all();
    });
  }
  work();
  std::unique_lock lock(doneMutex);
  doneChanged.wait(lock, [&] { return running == 0; });
}

}  // namespace vexa
