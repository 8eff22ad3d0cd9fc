#include "vexa/status/MemoryStatus.h"

#include "status/MachineFacts.h"
#include "status/MachineFiles.h"
#include "status/MemoryFigures.h"
#include "status/SamplerTimer.h"

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
  const auto meminfoText = files_->read("/proc/meminfo");
  if (!meminfoText) return;
  const auto sample =
      MemorySample::from(parseMeminfo(*meminfoText), machine_facts::zramDevices(*files_));
  if (!sample) return;
  const KernelTable vmstat = parseVmstat(files_->read("/proc/vmstat").value_or(""));

  std::lock_guard lock(memoryUsageLock_);
  const nlohmann::json vm = paging_->dictionary(vmstat, files_->pageSize());
  if (!delegate_) return;
  usedPercent_ = sample->usedFraction();
  delegate_->updateMemoryStatus(sample->dictionary(), vm, swapStats());
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

}  // namespace vexa
