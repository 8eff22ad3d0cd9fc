#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "vexa/Export.h"
#include "vexa/status/ProcessInfoEx.h"
#include "vexa/status/ProcessStatsDelegate.h"

namespace vexa {

class DispatchQueue;
class LaunchedApplications;
class ProcessTool;
class SamplerTimer;
class ToolTask;

// Follows the launched applications through the bundled vexa-top program, kept running while
// any application runs: every screen it prints updates the records (processor share, memory,
// swapped memory, system calls, state, the time since the previous screen) and goes to the
// delegate on the serial queue "command.top.queue". The list of applications is refreshed every
// freshInterval seconds (1 by default) on the run loop of the thread that created the sampler
// or last changed the interval.
class VEXA_EXPORT ProcessStatusEx : public std::enable_shared_from_this<ProcessStatusEx> {
 public:
  static const char* const kTopPattern;
  static const char* const kNumberPattern;
  static const char* const kStatePattern;

  // A sampler of this user's applications, running the installed vexa-top ($VEXA_TOP when set).
  static std::shared_ptr<ProcessStatusEx> create();
  // A sampler of the given applications, reading states through `tool` and running
  // `topCommand` (argv, its first element a path) in place of vexa-top.
  static std::shared_ptr<ProcessStatusEx> create(std::shared_ptr<LaunchedApplications> launched,
                                                 std::shared_ptr<ProcessTool> tool,
                                                 std::vector<std::string> topCommand);
  // The installed vexa-top with the columns the pattern reads.
  static std::vector<std::string> defaultTopCommand();
  ~ProcessStatusEx();
  ProcessStatusEx(const ProcessStatusEx&) = delete;
  ProcessStatusEx& operator=(const ProcessStatusEx&) = delete;

  void setFreshInterval(int32_t seconds);
  int32_t freshInterval() const;
  // The bookkeeping: records for the applications now running, vexa-top started when one runs
  // and none is, stopped when none runs.
  void updateProcessInfo();
  // Ends a running vexa-top, starts a new one and reads its screens until it ends. Blocks the
  // calling thread that long; the bookkeeping runs it on "command.top.queue".
  void runTopCommand();
  // One chunk of vexa-top's output. A line cut at the end of a chunk waits for the next one.
  void readOutputData(const std::string& chunk);
  // "512K" -> 524288: the last integer of the text with its G/M/K/B unit; 0 without one.
  uint64_t getByteSizeFromStr(const std::string& text) const;

  std::shared_ptr<ProcessStatsDelegate> delegate() const;
  void setDelegate(std::shared_ptr<ProcessStatsDelegate> delegate);
  std::regex topRegex() const;
  void setTopRegex(std::regex regex);
  std::regex numRegex() const;
  void setNumRegex(std::regex regex);
  // Whether a vexa-top child is running for this sampler.
  bool hasStatusTask() const;

 private:
  ProcessStatusEx(std::shared_ptr<LaunchedApplications> launched, std::shared_ptr<ProcessTool> tool,
                  std::vector<std::string> topCommand);
  std::shared_ptr<ToolTask> startTop();
  static void readTop(const std::weak_ptr<ProcessStatusEx>& weak,
                      const std::shared_ptr<ToolTask>& task);
  void topEnded(const std::shared_ptr<ToolTask>& task);

  std::shared_ptr<LaunchedApplications> launched_;
  std::shared_ptr<ProcessTool> tool_;
  const std::vector<std::string> topCommand_;
  std::unique_ptr<SamplerTimer> timer_;
  std::unique_ptr<DispatchQueue> queue_;
  std::mutex bookkeepingLock_;  // one bookkeeping at a time: the launcher list keeps state
  std::mutex readLock_;         // one chunk at a time: the carried line and the state query
  std::string carried_;
  mutable std::mutex mutex_;  // guards everything below
  std::shared_ptr<ProcessStatsDelegate> delegate_;
  std::regex topRegex_;
  std::regex numRegex_;
  std::regex stateRegex_;
  std::map<int32_t, ProcessInfoEx> processDicts_;
  std::shared_ptr<ToolTask> statusTask_;
  bool topQueued_ = false;
  std::optional<std::chrono::steady_clock::time_point> lastSampleDate_;
};

}  // namespace vexa
