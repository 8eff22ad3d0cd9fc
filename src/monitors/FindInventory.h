#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "util/ProcessRunner.h"

namespace vexa {

// Runs /usr/bin/find for a monitor's first inventory: with the caller's own rights when the
// program starts, through the privileged helper only when it cannot. Asking the helper each time
// would prompt for an administrator's password at every start, and the helper's reply loses all
// output when one path is not UTF-8.
//
// Blocks the calling thread until find ends. Safe from any thread.
class FindInventory {
 public:
  using LocalRun = std::function<ProcessRunner::Result(const std::vector<std::string>& argv)>;
  // The helper's output for a request; empty when it did not answer.
  using HelperAsk = std::function<std::optional<std::string>(const nlohmann::json& request)>;

  static constexpr const char* kFind = "/usr/bin/find";

  // ProcessRunner and the privileged helper.
  FindInventory();
  FindInventory(LocalRun local, HelperAsk helper);
  // The two ways on their own: ProcessRunner, and BrindleUtility's request to the helper.
  static LocalRun runLocally();
  static HelperAsk askHelper();

  // The helper's request for `cmd`: {"command": 12, "launch": "/usr/bin/find", "cmd": cmd}.
  static nlohmann::json request(const std::string& cmd);
  // find's arguments for `folder` and the name patterns, joined with the helper's separator:
  // "folder&|&-type&|&f&|&(&|&-name&|&*.dmg&|&-o&|&...&|&)" (no type test for an empty `type`).
  static std::string command(const std::string& folder, const std::string& type,
                             const std::vector<std::string>& patterns);
  // The absolute paths of find's output, one a line, in order. Lines that are not UTF-8 are
  // left out (logged once a call): no message could carry them.
  static std::vector<std::string> paths(std::string_view output);

  // The paths find lists for `cmd` that exist. find exits with 1 when it could not read some
  // folders: what it listed is still used. Empty when neither way ran it.
  std::vector<std::string> run(const std::string& cmd) const;

 private:
  static std::vector<std::string> existing(std::vector<std::string> found);

  LocalRun local_;
  HelperAsk helper_;
};

}  // namespace vexa
