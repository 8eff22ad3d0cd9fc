#include "vexa/status/ProcessStatusEx.h"

#include <algorithm>
#include <cstdlib>
#include <set>

#include "status/LaunchedApplications.h"
#include "status/MachineFiles.h"
#include "status/ProcessText.h"
#include "status/ProcessTool.h"
#include "status/SamplerTimer.h"
#include "status/ToolTask.h"
#include "vexa/util/DispatchQueue.h"

namespace vexa {

namespace {

// A line longer than this is not one of vexa-top's: it is dropped rather than carried on.
constexpr size_t kMaxCarriedBytes = 1 << 20;

}  // namespace

const char* const ProcessStatusEx::kTopPattern =
    R"([\n^\n]*?\s*(\d+)\s+(\d+.\d+)\s+([0-9a-zA-Z\+\-]+)\s+([0-9a-zA-Z\+\-]+)\s+([0-9a-zA-Z\+\-]+)\s+([0-9a-zA-Z\+\-]+)\s+([0-9a-zA-Z\+\-]+)\s+(\d+.\d+)\s*\n)";
const char* const ProcessStatusEx::kNumberPattern = R"(\s*(\d+)\s*([GMKB]?)\s*([\+\-]?))";
const char* const ProcessStatusEx::kStatePattern = R"([\n^\n]*?\s*(\d+)\s+([a-zA-Z]+)\s*\n)";

std::vector<std::string> ProcessStatusEx::defaultTopCommand() {
  const char* path = std::getenv("VEXA_TOP");
  return {path && *path ? path : VEXA_TOP_PATH, "-stats",
          "pid,cpu,mem,purg,cmprs,msgsent,msgrecv,power"};
}

std::shared_ptr<ProcessStatusEx> ProcessStatusEx::create() {
  auto files = MachineFiles::underRoot("/");
  const uint32_t uid = files->userId();
  return create(LaunchedApplications::ofUser(files, uid), ProcessTool::fromProc(files),
                defaultTopCommand());
}

std::shared_ptr<ProcessStatusEx> ProcessStatusEx::create(
    std::shared_ptr<LaunchedApplications> launched, std::shared_ptr<ProcessTool> tool,
    std::vector<std::string> topCommand) {
  std::shared_ptr<ProcessStatusEx> status(
      new ProcessStatusEx(std::move(launched), std::move(tool), std::move(topCommand)));
  status->setFreshInterval(1);
  return status;
}

ProcessStatusEx::ProcessStatusEx(std::shared_ptr<LaunchedApplications> launched,
                                 std::shared_ptr<ProcessTool> tool,
                                 std::vector<std::string> topCommand)
    : launched_(std::move(launched)),
      tool_(std::move(tool)),
      topCommand_(std::move(topCommand)),
      timer_(std::make_unique<SamplerTimer>()),
      queue_(std::make_unique<DispatchQueue>("command.top.queue", DispatchQueue::Kind::Serial)),
      topRegex_(kTopPattern),
      numRegex_(kNumberPattern),
      stateRegex_(kStatePattern) {}

ProcessStatusEx::~ProcessStatusEx() {
  timer_->stop();
  // The reader on the queue sees the end of the output and lets go of the task.
  if (statusTask_) statusTask_->terminate();
}

void ProcessStatusEx::setFreshInterval(int32_t seconds) {
  timer_->set(seconds, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->updateProcessInfo();
  });
}

int32_t ProcessStatusEx::freshInterval() const { return timer_->seconds(); }

std::shared_ptr<ProcessStatsDelegate> ProcessStatusEx::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_;
}

void ProcessStatusEx::setDelegate(std::shared_ptr<ProcessStatsDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::regex ProcessStatusEx::topRegex() const {
  std::lock_guard lock(mutex_);
  return topRegex_;
}

void ProcessStatusEx::setTopRegex(std::regex regex) {
  std::lock_guard lock(mutex_);
  topRegex_ = std::move(regex);
}

std::regex ProcessStatusEx::numRegex() const {
  std::lock_guard lock(mutex_);
  return numRegex_;
}

void ProcessStatusEx::setNumRegex(std::regex regex) {
  std::lock_guard lock(mutex_);
  numRegex_ = std::move(regex);
}

bool ProcessStatusEx::hasStatusTask() const {
  std::lock_guard lock(mutex_);
  return statusTask_ != nullptr;
}

void ProcessStatusEx::updateProcessInfo() {
  std::lock_guard bookkeeping(bookkeepingLock_);
  const auto applications = launched_->launched();
  std::shared_ptr<ToolTask> stopping;
  bool startTopNow = false;
  {
    std::lock_guard lock(mutex_);
    if (applications.empty()) {
      processDicts_.clear();
      stopping = std::move(statusTask_);
      statusTask_.reset();
    } else {
      std::set<int32_t> seen;
      for (const auto& app : applications) {
        seen.insert(app.pid);
        if (auto found = processDicts_.find(app.pid); found != processDicts_.end()) {
          found->second.appName = app.name;
          found->second.appPath = app.path;
        } else {
          processDicts_.emplace(app.pid, ProcessInfoEx(app.pid, app.name, app.path));
        }
      }
      std::erase_if(processDicts_, [&](const auto& entry) { return !seen.contains(entry.first); });
      // Queued once: the queue is busy for as long as vexa-top runs, and a second start would
      // only wait behind it.
      startTopNow = !statusTask_ && !topQueued_;
      if (startTopNow) topQueued_ = true;
    }
  }
  if (stopping) stopping->terminate();
  if (startTopNow) {
    queue_->async([weak = weak_from_this()] {
      std::shared_ptr<ToolTask> task;
      if (const auto self = weak.lock()) task = self->startTop();
      if (task) readTop(weak, task);
    });
  }
}

void ProcessStatusEx::runTopCommand() {
  if (const auto task = startTop()) readTop(weak_from_this(), task);
}

std::shared_ptr<ToolTask> ProcessStatusEx::startTop() {
  std::shared_ptr<ToolTask> old;
  {
    std::lock_guard lock(mutex_);
    old = std::move(statusTask_);
    statusTask_.reset();
  }
  if (old) old->terminate();
  std::shared_ptr<ToolTask> task = ToolTask::launch(topCommand_);
  std::lock_guard lock(mutex_);
  statusTask_ = task;
  if (!task) topQueued_ = false;
  return task;
}

void ProcessStatusEx::readTop(const std::weak_ptr<ProcessStatusEx>& weak,
                              const std::shared_ptr<ToolTask>& task) {
  using Clock = std::chrono::steady_clock;
  auto lastOutput = Clock::now();
  for (;;) {
    const auto chunk = task->read(500);
    if (!chunk) break;
    const auto self = weak.lock();
    if (!self) {
      task->terminate();
      continue;  // until the end of its output
    }
    if (!chunk->empty()) {
      lastOutput = Clock::now();
      self->readOutputData(*chunk);
      continue;
    }
    // A vexa-top that stops printing is ended; the next bookkeeping starts another.
    const auto stall = std::chrono::seconds(std::max(5, 5 * self->freshInterval()));
    if (Clock::now() - lastOutput > stall) task->terminate();
  }
  task->wait();
  if (const auto self = weak.lock()) self->topEnded(task);
}

void ProcessStatusEx::topEnded(const std::shared_ptr<ToolTask>& task) {
  {
    std::lock_guard reading(readLock_);
    carried_.clear();
  }
  std::lock_guard lock(mutex_);
  if (statusTask_ == task) statusTask_.reset();
  topQueued_ = false;
}

uint64_t ProcessStatusEx::getByteSizeFromStr(const std::string& text) const {
  const std::regex pattern = numRegex();
  uint64_t bytes = 0;
  for (auto it = std::sregex_iterator(text.begin(), text.end(), pattern);
       it != std::sregex_iterator(); ++it) {
    const std::smatch& match = *it;
    if (match.size() < 3) continue;
    const auto value = process_text::wholeNumber(match.str(1));
    if (!value) continue;
    const std::string unit = match.str(2);
    const int shift = unit == "G" ? 30 : unit == "M" ? 20 : unit == "K" ? 10 : 0;
    bytes = static_cast<uint64_t>(*value) << shift;
  }
  return bytes;
}

void ProcessStatusEx::readOutputData(const std::string& chunk) {
  std::lock_guard reading(readLock_);
  std::string text = std::move(carried_);
  text += chunk;
  const size_t end = text.rfind('\n');
  if (end == std::string::npos) {
    carried_ = std::move(text);
    if (carried_.size() > kMaxCarriedBytes) carried_.clear();
    return;
  }
  carried_ = text.substr(end + 1);
  if (carried_.size() > kMaxCarriedBytes) carried_.clear();
  text.resize(end + 1);

  std::regex pattern, statePattern;
  std::vector<int32_t> pids;
  double interval = 0;
  {
    std::lock_guard lock(mutex_);
    pattern = topRegex_;
    statePattern = stateRegex_;
    const auto now = std::chrono::steady_clock::now();
    interval = lastSampleDate_ ? std::chrono::duration<double>(now - *lastSampleDate_).count()
                               : static_cast<double>(timer_->seconds());
    lastSampleDate_ = now;
    for (const auto& [pid, info] : processDicts_) pids.push_back(pid);
  }

  std::map<int32_t, int64_t> states;
  if (!pids.empty()) {
    if (const auto stateText = tool_->states(pids)) {
      for (auto it = std::sregex_iterator(stateText->begin(), stateText->end(), statePattern);
           it != std::sregex_iterator(); ++it) {
        const auto pid = process_text::wholeNumber((*it).str(1));
        const auto code = process_text::stateCode((*it).str(2));
        if (pid && code && *pid > 0 && *pid <= INT32_MAX)
          states[static_cast<int32_t>(*pid)] = *code;
      }
    }
  }

  // The sizes are converted before the records are locked: the number pattern is read under
  // the same lock.
  struct Row {
    int32_t pid;
    double cpu, power;
    uint64_t memory, purgeable, compressed, sent, received;
  };
  std::vector<Row> rows;
  for (auto it = std::sregex_iterator(text.begin(), text.end(), pattern);
       it != std::sregex_iterator(); ++it) {
    const std::smatch& match = *it;
    const auto pid = process_text::wholeNumber(match.str(1));
    if (!pid || *pid <= 0 || *pid > INT32_MAX) continue;
    rows.push_back({static_cast<int32_t>(*pid), process_text::decimalNumber(match.str(2)),
                    process_text::decimalNumber(match.str(8)), getByteSizeFromStr(match.str(3)),
                    getByteSizeFromStr(match.str(4)), getByteSizeFromStr(match.str(5)),
                    getByteSizeFromStr(match.str(6)), getByteSizeFromStr(match.str(7))});
  }

  std::vector<ProcessInfoEx> infos;
  std::shared_ptr<ProcessStatsDelegate> delegate;
  {
    std::lock_guard lock(mutex_);
    for (const Row& row : rows) {
      const auto found = processDicts_.find(row.pid);
      if (found == processDicts_.end()) continue;
      ProcessInfoEx& info = found->second;
      info.cpu = row.cpu;
      info.memory = row.memory;
      info.purgMemory = row.purgeable;
      info.cmprsMemory = row.compressed;
      info.prevMsgsent = info.msgsent;
      info.msgsent = row.sent;
      info.prevMsgrecv = info.msgrecv;
      info.msgrecv = row.received;
      info.power = row.power;
      if (const auto state = states.find(row.pid); state != states.end()) {
        info.stat = state->second;
      }
      info.sampleInterval = interval;
    }
    for (const auto& [pid, info] : processDicts_) infos.push_back(info);
    delegate = delegate_;
  }
  if (delegate) delegate->updateProcessStaus(infos);
}

}  // namespace vexa
