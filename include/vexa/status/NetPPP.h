#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"

namespace vexa {

class MachineFiles;

// Status of dial-up (PPP) links, read from the kernel's view of their interfaces. A status is
// {"status", "inBytes", "outBytes", "timeElapsed", "timeRemaining"} of unsigned 32-bit numbers;
// status 8 is connected (the interface is up and running), 0 anything else. The kernel keeps no
// connection time, so both times are 0. Services are named by their interface.
class VEXA_EXPORT NetPPP {
 public:
  static NetPPP& shared();
  // Links of the machine under `root`.
  static std::shared_ptr<NetPPP> create(const std::string& root = "/");

  nlohmann::json queryStatusWithInterfaceName(const std::string& name) const;
  nlohmann::json queryStatusWithServiceID(const std::string& serviceId) const;
  // Dialling is the PPP daemon's business: both answer -1 (not done).
  int32_t connectWithServiceID(const std::string& serviceId);
  int32_t disconnectWithServiceID(const std::string& serviceId);
  // The PPP links the kernel has.
  int32_t queryPPPconfdLinkCount() const;

  static constexpr uint32_t kConnected = 8;

 private:
  explicit NetPPP(std::shared_ptr<MachineFiles> files);
  std::shared_ptr<MachineFiles> files_;
};

}  // namespace vexa
