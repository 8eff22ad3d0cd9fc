#include "vexa/status/MemoryStatus.h"

#include <cstdlib>
#include <new>
#include <vector>

#include "status/CleanBudget.h"
#include "status/KeptFile.h"
#include "status/MachineFacts.h"
#include "status/MachineFiles.h"
#include "status/MemoryCleaner.h"
#include "status/MemoryFigures.h"
#include "status/SamplerTimer.h"
#include "vexa/util/DispatchQueue.h"

namespace vexa {

MemoryStatus* MemoryStatus::shared() {
  static std::mutex lock;
  static std::shared_ptr<MemoryStatus> instance;
  std::lock_guard guard(lock);
  if (!instance) instance = create("/");
  return instance.get();
}

std::shared_ptr<MemoryStatus> MemoryStatus::create(const std::string& root) {
  auto files = MachineFiles::underRoot(root);
  if (!files->read("/proc/meminfo")) return nullptr;
  std::shared_ptr<MemoryStatus> status(new MemoryStatus(std::move(files)));
  status->setFreshInterval(1);
  return status;
}

MemoryStatus::MemoryStatus(std::shared_ptr<MachineFiles> files)
    : files_(std::move(files)),
      timer_(std::make_unique<SamplerTimer>()),
      paging_(std::make_unique<PagingDeltas>()) {
  physicalMemory_ = machine_facts::installedMemoryBytes(*files_);
  meminfo_ = KeptFile::open(files_, "/proc/meminfo");
  vmstat_ = KeptFile::open(files_, "/proc/vmstat");
}

MemoryStatus::~MemoryStatus() { timer_->stop(); }

void MemoryStatus::setFreshInterval(int32_t seconds) {
  timer_->set(seconds, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->updateInfo();
  });
}

int32_t MemoryStatus::freshInterval() const { return timer_->seconds(); }

std::shared_ptr<MemoryDelegate> MemoryStatus::delegate() const {
  std::lock_guard lock(memoryUsageLock_);
  return delegate_;
}

void MemoryStatus::setDelegate(std::shared_ptr<MemoryDelegate> delegate) {
  std::lock_guard lock(memoryUsageLock_);
  delegate_ = std::move(delegate);
}

void MemoryStatus::updateInfo() {
  std::lock_guard lock(memoryUsageLock_);
  const auto meminfoText = meminfo_->read();
  if (!meminfoText) return;
  // zram devices come and go rarely: looked for on the first sample and every minute or so.
  constexpr unsigned kZramScanPeriod = 60;
  if (samplesSinceZramScan_++ % kZramScanPeriod == 0) {
    zram_.clear();
    for (const std::string& path : machine_facts::zramStatFiles(*files_)) {
      zram_.push_back(KeptFile::open(files_, path));
    }
  }
  std::vector<ZramUsage> zram;
  for (const auto& device : zram_) {
    const auto text = device->read();
    if (!text) continue;
    if (const auto usage = parseZramMmStat(*text)) zram.push_back(*usage);
  }
  const auto sample =
      MemorySample::from(parseMeminfo(*meminfoText, MemorySample::kMeminfoKeys), zram);
  if (!sample) return;
  const KernelTable vmstat =
      parseVmstat(vmstat_->read().value_or(std::string_view()), PagingDeltas::kVmstatKeys);

  // The two dictionaries are kept between samples and written over: same keys, new values.
  paging_->fill(vmDictionary_, vmstat, files_->pageSize());
  if (!delegate_) return;
  usedPercent_ = sample->usedFraction();
  sample->fill(memoryDictionary_);
  delegate_->updateMemoryStatus(memoryDictionary_, vmDictionary_, swapStats());
}

std::optional<nlohmann::json> MemoryStatus::swapStats() {
  std::lock_guard lock(swapLock_);
  if (swapPath_) return std::nullopt;
  const auto entries = parseSwaps(files_->read("/proc/swaps").value_or(""));
  const SwapLocation location = SwapLocation::of(entries);
  swapPath_ = location.path;
  swapPrefix_ = location.prefix;
  return swapDictionary(entries, machine_facts::swapIsEncrypted(*files_, entries), peakSwapFiles_);
}

void MemoryStatus::initializeSwapPath() {
  const SwapLocation location =
      SwapLocation::of(parseSwaps(files_->read("/proc/swaps").value_or("")));
  std::lock_guard lock(swapLock_);
  swapPath_ = location.path;
  swapPrefix_ = location.prefix;
}

std::optional<std::string> MemoryStatus::swapPath() const {
  std::lock_guard lock(swapLock_);
  return swapPath_;
}

std::optional<std::string> MemoryStatus::swapPrefix() const {
  std::lock_guard lock(swapLock_);
  return swapPrefix_;
}

namespace {

std::mutex purgerLock;
std::function<int32_t()>& purgerSlot() {
  static std::function<int32_t()> purger;
  return purger;
}

}  // namespace

void MemoryStatus::setPurger(std::function<int32_t()> purger) {
  std::lock_guard lock(purgerLock);
  purgerSlot() = std::move(purger);
}

int32_t MemoryStatus::runPurge() {
  std::function<int32_t()> purger;
  {
    std::lock_guard lock(purgerLock);
    purger = purgerSlot();
  }
  return purger ? purger() : 0;
}

void MemoryStatus::clearMemory(int32_t* flag) {
  DispatchQueue::global().async([self = shared_from_this(), flag] {
    std::lock_guard lock(self->cleaningLock_);
    if (self->usedPercent() >= 0.95) self->runPurge();
    std::weak_ptr<MemoryStatus> weak = self;
    MemoryCleaner::clean(
        self->files_->root().empty() ? "/" : self->files_->root(),
        [weak] {
          if (const auto status = weak.lock()) {
            if (const auto delegate = status->delegate()) delegate->clearMemoryCompleted();
          }
        },
        false, flag);
  });
}

bool MemoryStatus::freshMemoryInfo() {
  const auto text = files_->read("/proc/meminfo");
  const auto sample = text ? MemorySample::from(parseMeminfo(*text), {}) : std::nullopt;
  if (!sample) return false;
  std::lock_guard lock(infoLock_);
  infoFree_ = sample->free;
  infoInactive_ = sample->inactive;
  physicalMemory_ = machine_facts::installedMemoryBytes(*files_);
  return true;
}

void MemoryStatus::free() {
  uint64_t bytes = 0;
  {
    std::lock_guard lock(infoLock_);
    bytes = infoFree_ + infoInactive_;
  }
  // The same budget as a cleaning pass: never past what the kernel can give without reclaim.
  bytes = std::min(bytes, CleanBudget::chunksNow(*files_) * CleanBudget::kChunkBytes);
  for (int round = 0; round < 2 && bytes > 0; ++round) {
    std::vector<uint32_t> words;
    try {
      words.resize(bytes / sizeof(uint32_t));
    } catch (const std::bad_alloc&) {
      return;
    }
    for (uint32_t& word : words) word = static_cast<uint32_t>(std::rand());
  }
}

}  // namespace vexa
