#pragma once

#include <optional>
#include <string>

namespace vexa {

// A UUID that stands for this machine to this application only: HMAC-SHA256 of the
// application's identity keyed with the machine id, cut to 128 bits and marked as a version 4
// UUID. The machine id itself cannot be recovered from it. Nothing when `machineId` is not 32
// hexadecimal digits.
std::optional<std::string> appSpecificMachineUuid(const std::string& machineId);

}  // namespace vexa
