#include "vexa/status/CPUStatus.h"

#include <algorithm>
#include <cstdio>

#include "status/CpuUsage.h"
#include "status/KeptFile.h"
#include "status/MachineFacts.h"
#include "status/MachineFiles.h"
#include "status/ProcParsers.h"
#include "status/SamplerTimer.h"
#include "status/TemperatureSource.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace {

int32_t clampToInt32(uint64_t value) {
  return static_cast<int32_t>(std::min<uint64_t>(value, INT32_MAX));
}

}  // namespace

CPUStatus* CPUStatus::shared() {
  static std::mutex lock;
  static std::shared_ptr<CPUStatus> instance;
  std::lock_guard guard(lock);
  if (!instance) instance = create("/");
  return instance.get();
}

std::shared_ptr<CPUStatus> CPUStatus::create(const std::string& root) {
  auto files = MachineFiles::underRoot(root);
  const auto text = files->read("/proc/stat");
  if (!text) return nullptr;
  const auto ticks = parseProcStat(*text);
  if (ticks.empty()) return nullptr;
  std::shared_ptr<CPUStatus> status(new CPUStatus(std::move(files)));
  status->usage_->prime(ticks);
  status->setFreshInterval(1);
  return status;
}

CPUStatus::CPUStatus(std::shared_ptr<MachineFiles> files)
    : files_(std::move(files)),
      timer_(std::make_unique<SamplerTimer>()),
      usage_(std::make_unique<CpuUsage>()) {
  cpuName_ = getCPUName();
  cpuSpeed_ = getCPUSpeed();
  numberOfCPUs_ = getNumberOfCPUs();
  stat_ = KeptFile::open(files_, "/proc/stat");
  loadavg_ = KeptFile::open(files_, "/proc/loadavg");
}

CPUStatus::~CPUStatus() { timer_->stop(); }

void CPUStatus::setFreshInterval(int32_t seconds) {
  timer_->set(seconds, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->updateInfo();
  });
}

int32_t CPUStatus::freshInterval() const { return timer_->seconds(); }

std::shared_ptr<CPUDelegate> CPUStatus::delegate() const {
  std::lock_guard lock(cpuUsageLock_);
  return delegate_;
}

void CPUStatus::setDelegate(std::shared_ptr<CPUDelegate> delegate) {
  std::lock_guard lock(cpuUsageLock_);
  delegate_ = std::move(delegate);
}

void CPUStatus::updateInfo() {
  std::lock_guard lock(cpuUsageLock_);
  const auto statText = stat_->read();
  if (!statText) return;
  const auto ticks = parseProcStat(*statText);
  if (ticks.empty()) return;

  const std::vector<CoreUsage> cores = usage_->update(ticks);
  if (!delegate_) return;
  CPUDelegate& delegate = *delegate_;
  for (const CoreUsage& core : cores) {
    const UsageShares shares = CpuUsage::shares(core);
    delegate.cpuUsedWithCore(static_cast<uint32_t>(core.core), shares.system, shares.user,
                             shares.idle);
  }
  const UsageShares all = CpuUsage::overall(cores);
  delegate.cpuUsedWithSystem(all.system, all.user, all.idle);

  const auto load = parseLoadavg(loadavg_->read().value_or(std::string_view()));
  if (load) {
    delegate.processorWithTaskCount(clampToInt32(taskCount(load->threads, load->lastPid)),
                                    clampToInt32(load->threads));
    delegate.loadAverageWith1m(static_cast<float>(load->oneMinute),
                               static_cast<float>(load->fiveMinutes),
                               static_cast<float>(load->fifteenMinutes));
  }
  reportTemperature(delegate);
}

uint64_t CPUStatus::taskCount(uint64_t threads, uint64_t lastPid) {
  // Every process is a numbered folder of /proc. Listing /proc costs the kernel a lookup per
  // process, most of an idle sample, so the count is kept while loadavg's thread total and
  // newest pid stay as they were when it was taken: no task was made since (that takes a new
  // pid) and none was reaped (that lowers the total). loadavg is read before the listing, so a
  // task made in between is counted now and seen as a change next time.
  if (countedTasks_ && threads == countedThreads_ && lastPid != 0 && lastPid == countedLastPid_) {
    return *countedTasks_;
  }
  const auto entries = files_->list("/proc");
  countedTasks_ = static_cast<uint64_t>(
      std::count_if(entries.begin(), entries.end(), [](const std::string& name) {
        return !name.empty() && name.find_first_not_of("0123456789") == std::string::npos;
      }));
  countedThreads_ = threads;
  countedLastPid_ = lastPid;
  return *countedTasks_;
}

void CPUStatus::reportTemperature(CPUDelegate& delegate) {
  // The chosen sensor's file is read on every sample; the choice is made again only when that
  // file stops answering.
  if (temperature_) {
    const auto text = temperature_->read();
    if (const auto celsius = text ? parseMillidegrees(*text) : std::nullopt) {
      if (*celsius > 0) delegate.cpuWithTemperature(*celsius);
      return;
    }
    temperature_.reset();
    temperatureSearched_ = false;
  }
  if (temperatureSearched_) return;
  temperatureSearched_ = true;
  const auto choice = chooseCpuTemperature(readHwmonChips(*files_), readThermalZones(*files_));
  if (!choice) {
    SystemLog::log("CPUStatus: no processor temperature sensor under %s",
                   files_->root().empty() ? "/" : files_->root().c_str());
    return;
  }
  temperature_ = KeptFile::open(files_, choice->path);
  if (choice->celsius > 0) delegate.cpuWithTemperature(choice->celsius);
}

std::string CPUStatus::getCPUName() const { return "Intel"; }

std::optional<std::string> CPUStatus::getCPUSpeed() const {
  const auto hertz = machine_facts::processorClockHz(*files_);
  if (!hertz) return std::nullopt;
  return formatClockRate(*hertz);
}

int32_t CPUStatus::getNumberOfCPUs() const { return machine_facts::onlineProcessorCount(*files_); }

std::string CPUStatus::formatClockRate(uint64_t hertz) {
  char text[64];
  if (hertz < 1000000001ULL) {
    std::snprintf(text, sizeof text, "%.2f MHz",
                  static_cast<double>(static_cast<float>(hertz) / 1000000.0F));
  } else {
    std::snprintf(text, sizeof text, "%.2f GHz",
                  static_cast<double>(static_cast<float>(hertz) / 1000000000.0F));
  }
  return text;
}

}  // namespace vexa
