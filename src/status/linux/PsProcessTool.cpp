#include <utility>

#include "status/ProcessTool.h"
#include "util/ProcessRunner.h"

namespace vexa {
namespace {

// procps ps, one child per call.
class PsProcessTool final : public ProcessTool {
 public:
  explicit PsProcessTool(std::string program) : program_(std::move(program)) {}

  std::optional<std::string> usage(const std::vector<int32_t>& pids) override {
    return run(pids, "pid,%cpu,%mem,rss,vsz,stat");
  }
  std::optional<std::string> states(const std::vector<int32_t>& pids) override {
    return run(pids, "pid,stat");
  }

 private:
  std::optional<std::string> run(const std::vector<int32_t>& pids, const char* columns) const {
    std::string list;
    for (const int32_t pid : pids) list += std::to_string(pid) + ",";
    if (list.empty()) return std::nullopt;
    list.pop_back();
    const auto result = ProcessRunner::run({program_, "-p", list, "-o", columns});
    if (!result.started || result.status != 0) return std::nullopt;
    return result.output;
  }

  std::string program_;
};

}  // namespace

std::shared_ptr<ProcessTool> ProcessTool::psProgram(std::string program) {
  return std::make_shared<PsProcessTool>(std::move(program));
}

}  // namespace vexa
