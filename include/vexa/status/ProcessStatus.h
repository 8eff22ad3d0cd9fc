#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <regex>
#include <string>

#include "vexa/Export.h"
#include "vexa/status/ProcessInfo.h"
#include "vexa/status/ProcessStatsDelegate.h"

namespace vexa {

class LaunchedApplications;
class ProcessTool;
class SamplerTimer;

// Samples the launched applications every freshInterval seconds (2 by default) on the run loop
// of the thread that created it or last changed the interval: processor and memory shares and
// sizes from the process-status tool's text, read through psRegex. The delegate hears nothing
// when the tool fails, and nothing (an absent list) when no application runs.
class VEXA_EXPORT ProcessStatus : public std::enable_shared_from_this<ProcessStatus> {
 public:
  // The pattern the tool's text is read with: one "pid %cpu %mem rss vsz stat" line a match.
  static const char* const kPsPattern;

  // A sampler of this user's applications on the machine under `root` ("/": this one), reading
  // its /proc and cgroups.
  static std::shared_ptr<ProcessStatus> create(const std::string& root = "/");
  // A sampler of the given applications and tool (tests pass recorded text).
  static std::shared_ptr<ProcessStatus> create(std::shared_ptr<LaunchedApplications> launched,
                                               std::shared_ptr<ProcessTool> tool);
  ~ProcessStatus();
  ProcessStatus(const ProcessStatus&) = delete;
  ProcessStatus& operator=(const ProcessStatus&) = delete;

  void setFreshInterval(int32_t seconds);
  int32_t freshInterval() const;
  // One sample now, on the calling thread; blocks while the tool runs.
  void updateInfo();

  std::shared_ptr<ProcessStatsDelegate> delegate() const;
  void setDelegate(std::shared_ptr<ProcessStatsDelegate> delegate);
  std::regex psRegex() const;
  void setPsRegex(std::regex regex);

 private:
  ProcessStatus(std::shared_ptr<LaunchedApplications> launched, std::shared_ptr<ProcessTool> tool);

  std::shared_ptr<LaunchedApplications> launched_;
  std::shared_ptr<ProcessTool> tool_;
  std::unique_ptr<SamplerTimer> timer_;
  mutable std::mutex mutex_;  // guards everything below; samples run one at a time
  std::shared_ptr<ProcessStatsDelegate> delegate_;
  std::regex psRegex_;
  std::map<int32_t, ProcessInfo> processDicts_;
  std::mutex sampleLock_;
};

}  // namespace vexa
