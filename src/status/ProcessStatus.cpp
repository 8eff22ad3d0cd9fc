#include "vexa/status/ProcessStatus.h"

#include <algorithm>
#include <climits>

#include "status/LaunchedApplications.h"
#include "status/MachineFiles.h"
#include "status/ProcessText.h"
#include "status/ProcessTool.h"
#include "status/SamplerTimer.h"

namespace vexa {

namespace {

// Sizes in KiB beyond 2 TiB do not fit the record's fields: they stay at the largest value.
int32_t clamped(int64_t value) {
  return static_cast<int32_t>(std::clamp<int64_t>(value, 0, INT32_MAX));
}

}  // namespace

const char* const ProcessStatus::kPsPattern =
    R"([\n^\n]*?\s*(\d+)\s+(\d+.\d+)\s+(\d+.\d+)\s+(\d+)\s+(\d+)\s+([a-zA-Z]+)\s*\n)";

std::shared_ptr<ProcessStatus> ProcessStatus::create(const std::string& root) {
  auto files = MachineFiles::underRoot(root);
  const uint32_t uid = files->userId();
  return create(LaunchedApplications::ofUser(files, uid), ProcessTool::fromProc(files));
}

std::shared_ptr<ProcessStatus> ProcessStatus::create(std::shared_ptr<LaunchedApplications> launched,
                                                     std::shared_ptr<ProcessTool> tool) {
  std::shared_ptr<ProcessStatus> status(new ProcessStatus(std::move(launched), std::move(tool)));
  status->setFreshInterval(2);
  return status;
}

ProcessStatus::ProcessStatus(std::shared_ptr<LaunchedApplications> launched,
                             std::shared_ptr<ProcessTool> tool)
    : launched_(std::move(launched)),
      tool_(std::move(tool)),
      timer_(std::make_unique<SamplerTimer>()),
      psRegex_(kPsPattern) {}

ProcessStatus::~ProcessStatus() { timer_->stop(); }

void ProcessStatus::setFreshInterval(int32_t seconds) {
  timer_->set(seconds, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->updateInfo();
  });
}

int32_t ProcessStatus::freshInterval() const { return timer_->seconds(); }

std::shared_ptr<ProcessStatsDelegate> ProcessStatus::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_;
}

void ProcessStatus::setDelegate(std::shared_ptr<ProcessStatsDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::regex ProcessStatus::psRegex() const {
  std::lock_guard lock(mutex_);
  return psRegex_;
}

void ProcessStatus::setPsRegex(std::regex regex) {
  std::lock_guard lock(mutex_);
  psRegex_ = std::move(regex);
}

void ProcessStatus::updateInfo() {
  // The launcher list and the tool keep state between calls: one sample at a time.
  std::lock_guard sampling(sampleLock_);
  const auto applications = launched_->launched();
  std::vector<int32_t> pids;
  std::shared_ptr<ProcessStatsDelegate> delegate;
  std::regex pattern;
  {
    std::lock_guard lock(mutex_);
    processDicts_.clear();
    for (const auto& app : applications) {
      processDicts_.insert_or_assign(app.pid, ProcessInfo(app.pid, app.name, app.path));
      pids.push_back(app.pid);
    }
    delegate = delegate_;
    pattern = psRegex_;
  }
  if (pids.empty()) {
    if (delegate) delegate->updateProcessStaus(std::nullopt);
    return;
  }
  const auto text = tool_->usage(pids);
  if (!text) return;
  std::vector<ProcessInfo> infos;
  {
    std::lock_guard lock(mutex_);
    for (auto it = std::sregex_iterator(text->begin(), text->end(), pattern);
         it != std::sregex_iterator(); ++it) {
      const std::smatch& match = *it;
      const auto pid = process_text::wholeNumber(match.str(1));
      const auto found = pid ? processDicts_.find(static_cast<int32_t>(*pid)) : processDicts_.end();
      if (found == processDicts_.end() || *pid != found->first) continue;
      ProcessInfo& info = found->second;
      info.cpu = process_text::decimalNumber(match.str(2));
      info.memory = process_text::decimalNumber(match.str(3));
      info.phyMemoryPages = clamped(process_text::wholeNumber(match.str(4)).value_or(0));
      info.virtMemoryPages = clamped(process_text::wholeNumber(match.str(5)).value_or(0));
      if (const auto code = process_text::stateCode(match.str(6))) info.stat = *code;
    }
    for (const auto& [pid, info] : processDicts_) infos.push_back(info);
  }
  if (delegate) delegate->updateProcessStaus(infos);
}

}  // namespace vexa
