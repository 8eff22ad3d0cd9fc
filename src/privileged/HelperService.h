#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace vexa {

// What the privileged helper does for one request (the helper protocol's dictionary), answered
// as {"result": bool, "object": string?}. Runs with the helper's rights, so it trusts nothing:
// malformed requests are refused, no symbolic link is followed in a path's last component or
// in a folder anyone but root can write, and tools run only as ToolPolicy allows, never through
// a shell. Safe from any thread.
class HelperService {
 public:
  static constexpr size_t kMaxPathBytes = 4096;
  static constexpr size_t kMaxArgumentBytes = size_t{256} * 1024;

  static nlohmann::json handle(const nlohmann::json& request);
  // The polkit action that authorizes the request: HelperProtocol::kPurgeAction for the purge
  // tool, kRequestAction for everything else (malformed requests included).
  static const char* actionFor(const nlohmann::json& request);
};

}  // namespace vexa
