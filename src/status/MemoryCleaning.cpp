#include "vexa/status/MemoryCleaning.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "status/CleanBudget.h"
#include "status/MachineFiles.h"
#include "status/MemoryCleaner.h"
#include "status/MemoryFigures.h"
#include "util/ProcessRunner.h"
#include "vexa/status/MemoryStatus.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kCleaningTime = std::chrono::seconds(10);
constexpr size_t kTouchStep = size_t{1} << 20;

// Set by signal_handler and by the child's deadline; read by the passes.
int32_t stopClearMemory = 0;

// The child's ten-second deadline, which also ends a pass that is still touching chunks.
std::atomic<Clock::rep> childDeadline{Clock::time_point::max().time_since_epoch().count()};
bool pastDeadline() { return Clock::now().time_since_epoch().count() >= childDeadline.load(); }

std::mutex rootLock;
std::string cleaningRoot = "/";

int32_t loadFlag(const int32_t* flag) { return __atomic_load_n(flag, __ATOMIC_RELAXED); }

memory_block* newNode() { return static_cast<memory_block*>(std::calloc(1, sizeof(memory_block))); }

}  // namespace

namespace vexa {

void MemoryCleaner::setMachineRoot(const std::string& root) {
  std::lock_guard lock(rootLock);
  cleaningRoot = root.empty() ? "/" : root;
}

std::string MemoryCleaner::machineRoot() {
  std::lock_guard lock(rootLock);
  return cleaningRoot;
}

std::string MemoryCleaner::childPath() {
  if (const char* path = std::getenv("VEXA_MEMCLEAN"); path && *path) return path;
  return VEXA_MEMCLEAN_PATH;
}

bool MemoryCleaner::reclaimInactiveFiles(const std::string& root) {
  const auto files = MachineFiles::underRoot(root);
  const auto folder = CleanBudget::cgroupV2Folder(*files);
  if (!folder) return false;
  const KernelTable stat = parseVmstat(files->read(*folder + "/memory.stat").value_or(""));
  const auto inactive = stat.find("inactive_file");
  if (inactive == stat.end() || inactive->second == 0) return false;
  return files->write(*folder + "/memory.reclaim", std::to_string(inactive->second));
}

void MemoryCleaner::clean(const std::string& root, const std::function<void()>& completion,
                          bool oldSystem, int32_t* flag) {
  if (flag && loadFlag(flag) == 0) {
    reclaimInactiveFiles(root);
    const int child = ProcessRunner::start(
        {childPath(), "--sysroot", root, "--old-system", oldSystem ? "1" : "0"});
    if (child > 0) {
      // The child keeps its own ten-second deadline; this one only guards against a child
      // that stopped answering.
      const auto deadline = Clock::now() + kCleaningTime + std::chrono::seconds(2);
      bool stopped = false;
      while (!ProcessRunner::hasExited(child)) {
        if (!stopped && (loadFlag(flag) == 1 || Clock::now() > deadline)) {
          ProcessRunner::terminate(child);
          stopped = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    }
  }
  std::this_thread::sleep_for(std::chrono::seconds(1));
  if (completion) completion();
}

}  // namespace vexa

extern "C" {

uint32_t get_memory_info(memory_info* info) {
  if (!info) return 0xFFFFFFFF;
  const auto files = vexa::MachineFiles::underRoot(vexa::MemoryCleaner::machineRoot());
  const auto text = files->read("/proc/meminfo");
  const auto sample = text ? vexa::MemorySample::from(vexa::parseMeminfo(*text), {}) : std::nullopt;
  if (!sample) return 0xFFFFFFFF;
  info->total = sample->total;
  info->free = sample->free;
  info->active = sample->active;
  info->inactive = sample->inactive;
  info->wired = sample->wired + sample->compressed;
  info->used = info->active + info->inactive + info->wired;
  return 0;
}

void clear_memory(void (*completion)(void), int oldSystem, int32_t* flag) {
  stopClearMemory = flag ? loadFlag(flag) : 1;
  vexa::MemoryCleaner::clean(
      vexa::MemoryCleaner::machineRoot(),
      [completion] {
        if (completion) completion();
      },
      oldSystem == 1, flag);
}

memory_block* auto_calloc(int32_t* flag, int oldSystem) {
  memory_block* head = newNode();
  if (!head) return nullptr;
  if (oldSystem == 1) {
    add_memory_block(head, 1024, 16, flag);
  } else if (memory_block* tail = add_memory_block(head, 1024, 10, flag)) {
    add_memory_block_ex(tail);
  }
  return head;
}

void auto_free(memory_block* head) {
  while (head) {
    memory_block* next = head->next;
    std::free(head->data);
    std::free(head);
    head = next;
  }
}

memory_block* add_memory_block(memory_block* node, size_t size, int32_t count, int32_t* flag) {
  if (!node) return nullptr;
  int32_t added = -1;
  do {
    if (flag && loadFlag(flag) == 1) break;
    memory_block* next = newNode();
    void* block = next ? std::calloc(1, size) : nullptr;
    if (!block) {
      std::free(next);
      break;
    }
    std::memset(block, 0x01, size);
    next->data = block;
    node->next = next;
    node = next;
    ++added;
  } while (added < count);
  return node;
}

void add_memory_block_ex(memory_block* tail) {
  if (!tail) return;
  const auto files = vexa::MachineFiles::underRoot(vexa::MemoryCleaner::machineRoot());
  const uint64_t chunks = vexa::CleanBudget::chunksNow(*files);
  // The slot array of the chain's shape; the chunks themselves hang off the chain.
  memory_block* slots = newNode();
  void* array = slots ? std::calloc(chunks + 1, sizeof(void*)) : nullptr;
  if (!array) {
    std::free(slots);
    return;
  }
  slots->data = array;
  tail->next = slots;
  tail = slots;
  for (uint64_t i = 0; i < chunks && loadFlag(&stopClearMemory) == 0 && !pastDeadline(); ++i) {
    void* chunk = nullptr;
    if (posix_memalign(&chunk, 4096, vexa::CleanBudget::kChunkBytes) != 0) break;
    memory_block* node = newNode();
    if (!node) {
      std::free(chunk);
      break;
    }
    node->data = chunk;
    tail->next = node;
    tail = node;
    auto* bytes = static_cast<unsigned char*>(chunk);
    for (size_t at = 0;
         at < vexa::CleanBudget::kChunkBytes && loadFlag(&stopClearMemory) == 0 && !pastDeadline();
         at += kTouchStep) {
      std::memset(bytes + at, 0x01, kTouchStep);
    }
    if (vexa::CleanBudget::shouldStop(*files)) break;
  }
}

void signal_handler(int signal) {
  (void)signal;
  __atomic_store_n(&stopClearMemory, 1, __ATOMIC_RELAXED);
}

void int_timer(void) {}
void uninit_time(void) {}

void cleanmemorycomplete(void) {
  if (vexa::MemoryStatus* status = vexa::MemoryStatus::shared()) {
    if (const auto delegate = status->delegate()) delegate->clearMemoryCompleted();
  }
}

int SystemVersionCompare(int32_t gestalt, int32_t minor) {
  (void)gestalt;
  (void)minor;
  return 1;
}

int memclean_run(const char* root, int oldSystem) {
  vexa::MemoryCleaner::setMachineRoot(root ? root : "/");
  const auto files = vexa::MachineFiles::underRoot(vexa::MemoryCleaner::machineRoot());
  childDeadline = (Clock::now() + kCleaningTime).time_since_epoch().count();
  while (loadFlag(&stopClearMemory) == 0 && !pastDeadline()) {
    // Nothing to gain from a pass without chunks: the child ends instead of spinning.
    if (oldSystem != 1 && vexa::CleanBudget::chunksNow(*files) == 0) break;
    memory_block* head = auto_calloc(&stopClearMemory, oldSystem);
    if (!head) break;
    auto_free(head);
  }
  return 0;
}

}  // extern "C"
