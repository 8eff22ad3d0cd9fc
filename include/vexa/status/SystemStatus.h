#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"

namespace vexa {

class MachineFiles;

// The machine's and the user's identity, collected once at creation: names, system version,
// installed memory, serial number and hardware UUID, model, processor name, clock rate and
// core count. Nothing is refreshed later; what the machine does not tell is absent.
class VEXA_EXPORT SystemStatus {
 public:
  static SystemStatus& shared();
  // The identity of the machine under `root`.
  static std::shared_ptr<SystemStatus> create(const std::string& root = "/");
  ~SystemStatus();
  SystemStatus(const SystemStatus&) = delete;
  SystemStatus& operator=(const SystemStatus&) = delete;

  void setupSystemInformation();
  // PRETTY_HOSTNAME of machine-info, else the host name.
  std::optional<std::string> queryComputerName() const;
  // os-release NAME and VERSION_ID with the kernel release: "Debian GNU/Linux 12 (6.1.0-18)".
  std::optional<std::string> getOSVersionInfo() const;
  // The words of a processor brand string up to "CPU", without "(R)", "(TM)" and words that
  // start with a digit: "Intel(R) Core(TM) i7-4770HQ CPU @ 2.20GHz" gives "Intel Core i7".
  static std::optional<std::string> _parseBrandName(const std::optional<std::string>& brand);

  const std::optional<std::string>& computerName() const { return computerName_; }
  const std::optional<std::string>& sysName() const { return sysName_; }
  const std::optional<std::string>& sysUserName() const { return sysUserName_; }
  const std::optional<std::string>& sysFullUserName() const { return sysFullUserName_; }
  const std::optional<std::string>& sysOSVersion() const { return sysOSVersion_; }
  uint64_t sysPhysicalMemory() const { return sysPhysicalMemory_; }
  // Readable by root only on most machines: absent for other users.
  const std::optional<std::string>& sysSerialNumber() const { return sysSerialNumber_; }
  // The board's UUID, else a hash of the machine id made for this application (never the id).
  const std::optional<std::string>& sysUUID() const { return sysUUID_; }
  const std::optional<std::string>& sysModelID() const { return sysModelID_; }
  const std::optional<std::string>& sysProcessorName() const { return sysProcessorName_; }
  std::optional<uint64_t> sysProcessorSpeed() const { return sysProcessorSpeed_; }
  std::optional<uint64_t> sysProcessorCount() const { return sysProcessorCount_; }

  // Every property by name ("computerName", "sysName", ...); absent ones are null.
  nlohmann::json dictionary() const;

 private:
  explicit SystemStatus(std::shared_ptr<MachineFiles> files);

  std::shared_ptr<MachineFiles> files_;
  std::optional<std::string> computerName_, sysName_, sysUserName_, sysFullUserName_, sysOSVersion_,
      sysSerialNumber_, sysUUID_, sysModelID_, sysProcessorName_;
  uint64_t sysPhysicalMemory_ = 0;
  std::optional<uint64_t> sysProcessorSpeed_, sysProcessorCount_;
};

}  // namespace vexa
