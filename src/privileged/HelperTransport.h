#pragma once

#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace vexa {

// Carries one request to the privileged helper and brings back its reply (both dictionaries
// with the keys of the helper protocol). Blocks the calling thread.
class HelperTransport {
 public:
  enum class Failure { None, NoConnection, Interrupted, Invalid, Other };
  struct Outcome {
    std::optional<nlohmann::json> reply;  // present when the helper answered
    Failure failure = Failure::None;
  };
  virtual ~HelperTransport() = default;
  virtual Outcome send(const nlohmann::json& request) = 0;
  // Whether requests go to a helper someone started on a bus of its own (tests, development)
  // rather than to the system's service. Such a helper is not installed: nothing to bless.
  virtual bool isPrivateBus() const = 0;
};

// The platform's transport: D-Bus on Linux, to the system bus or, when the environment names
// one in VEXA_HELPER_BUS_ADDRESS, to that private bus (read at each request).
std::shared_ptr<HelperTransport> makePlatformHelperTransport();

}  // namespace vexa
