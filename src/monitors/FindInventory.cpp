#include "monitors/FindInventory.h"

#include "privileged/ToolPolicy.h"
#include "util/PathName.h"
#include "vexa/privileged/BrindleUtility.h"
#include "vexa/privileged/HelperProtocol.h"
#include "vexa/util/MonitorString.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

using nlohmann::json;
using P = HelperProtocol;

FindInventory::FindInventory() : FindInventory(runLocally(), askHelper()) {}

FindInventory::LocalRun FindInventory::runLocally() {
  return [](const std::vector<std::string>& argv) { return ProcessRunner::run(argv); };
}

FindInventory::HelperAsk FindInventory::askHelper() {
  return [](const json& request) {
    std::optional<std::string> output;
    BrindleUtility::sendMessage(request, [&](bool, const std::optional<std::string>& object) {
      // find's failure (status 1) still carries its listing.
      output = object.value_or("");
    });
    return output;
  };
}

FindInventory::FindInventory(LocalRun local, HelperAsk helper)
    : local_(std::move(local)), helper_(std::move(helper)) {}

json FindInventory::request(const std::string& cmd) {
  return {{P::kCommandKey, int64_t{P::kRunTool}}, {P::kLaunchKey, kFind}, {P::kCmdKey, cmd}};
}

std::string FindInventory::command(const std::string& folder, const std::string& type,
                                   const std::vector<std::string>& patterns) {
  std::string cmd = folder;
  auto add = [&cmd](const std::string& argument) {
    cmd.append(P::kArgumentSeparator).append(argument);
  };
  if (!type.empty()) {
    add("-type");
    add(type);
  }
  add("(");
  for (size_t i = 0; i < patterns.size(); ++i) {
    if (i > 0) add("-o");
    add("-name");
    add(patterns[i]);
  }
  add(")");
  return cmd;
}

std::vector<std::string> FindInventory::paths(std::string_view output) {
  std::vector<std::string> found;
  size_t skipped = 0;
  while (!output.empty()) {
    const size_t end = output.find('\n');
    const std::string line(output.substr(0, end));
    output.remove_prefix(end == std::string_view::npos ? output.size() : end + 1);
    if (line.empty() || line[0] != '/') continue;
    if (line.find('\0') != std::string::npos || !MonitorString::cstringToString(line.c_str())) {
      ++skipped;
      continue;
    }
    found.push_back(line);
  }
  if (skipped > 0) SystemLog::log("%zu found paths left out: not UTF-8", skipped);
  return found;
}

std::vector<std::string> FindInventory::run(const std::string& cmd) const {
  const auto decision = ToolPolicy::check(kFind, cmd);
  if (decision.allowed) {
    std::vector<std::string> argv = {decision.program};
    argv.insert(argv.end(), decision.arguments.begin(), decision.arguments.end());
    auto result = local_(argv);
    if (result.started) return existing(paths(result.output));
  }
  auto output = helper_(request(cmd));
  return output ? existing(paths(*output)) : std::vector<std::string>{};
}

std::vector<std::string> FindInventory::existing(std::vector<std::string> found) {
  // A name with a line feed in it comes out as two lines, neither of them a path.
  std::erase_if(found, [](const std::string& path) { return !PathName::entryExists(path); });
  return found;
}

}  // namespace vexa
