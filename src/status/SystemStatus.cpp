#include "vexa/status/SystemStatus.h"

#include <cctype>
#include <mutex>
#include <vector>

#include "status/AppSpecificId.h"
#include "status/MachineFacts.h"
#include "status/MachineFiles.h"
#include "status/ProcParsers.h"

namespace vexa {
namespace {

nlohmann::json orNull(const std::optional<std::string>& value) {
  return value ? nlohmann::json(*value) : nlohmann::json();
}
nlohmann::json orNull(const std::optional<uint64_t>& value) {
  return value ? nlohmann::json(*value) : nlohmann::json();
}

bool equalsIgnoringCase(const std::string& a, const char* b) {
  size_t i = 0;
  for (; i < a.size() && b[i]; ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != b[i]) return false;
  }
  return i == a.size() && !b[i];
}

}  // namespace

SystemStatus& SystemStatus::shared() {
  static std::once_flag once;
  static std::shared_ptr<SystemStatus> instance;
  std::call_once(once, [] { instance = create("/"); });
  return *instance;
}

std::shared_ptr<SystemStatus> SystemStatus::create(const std::string& root) {
  std::shared_ptr<SystemStatus> status(new SystemStatus(MachineFiles::underRoot(root)));
  status->setupSystemInformation();
  return status;
}

SystemStatus::SystemStatus(std::shared_ptr<MachineFiles> files) : files_(std::move(files)) {}
SystemStatus::~SystemStatus() = default;

void SystemStatus::setupSystemInformation() {
  const MachineFiles& files = *files_;
  computerName_ = queryComputerName();
  sysName_ = trimmedValue(files.read("/proc/sys/kernel/hostname"));
  if (const auto user = findPasswdEntry(files.read("/etc/passwd").value_or(""), files.userId())) {
    sysUserName_ = user->name;
    sysFullUserName_ = user->fullName.empty() ? user->name : user->fullName;
  }
  sysOSVersion_ = getOSVersionInfo();
  sysPhysicalMemory_ = machine_facts::installedMemoryBytes(files);
  // Both are readable by root only on most machines.
  sysSerialNumber_ = trimmedValue(files.read("/sys/class/dmi/id/product_serial"));
  sysUUID_ = trimmedValue(files.read("/sys/class/dmi/id/product_uuid"));
  if (!sysUUID_) {
    if (const auto id = trimmedValue(files.read("/etc/machine-id"))) {
      sysUUID_ = appSpecificMachineUuid(*id);
    }
  }
  sysModelID_ = trimmedValue(files.read("/sys/class/dmi/id/product_name"));
  if (!sysModelID_) sysModelID_ = trimmedValue(files.read("/proc/device-tree/model"));
  const CpuInfo cpu = parseCpuinfo(files.read("/proc/cpuinfo").value_or(""));
  sysProcessorName_ = _parseBrandName(cpu.modelName);
  sysProcessorSpeed_ = machine_facts::processorClockHz(files);
  if (cpu.cores > 0) {
    sysProcessorCount_ = static_cast<uint64_t>(cpu.cores);
  } else {
    // Without package and core ids (many ARM kernels), every processor counts as a core.
    sysProcessorCount_ = static_cast<uint64_t>(machine_facts::onlineProcessorCount(files));
  }
}

std::optional<std::string> SystemStatus::queryComputerName() const {
  const auto info = parseKeyValueFile(files_->read("/etc/machine-info").value_or(""));
  if (const auto found = info.find("PRETTY_HOSTNAME");
      found != info.end() && !found->second.empty()) {
    return found->second;
  }
  return trimmedValue(files_->read("/proc/sys/kernel/hostname"));
}

std::optional<std::string> SystemStatus::getOSVersionInfo() const {
  const auto release = trimmedValue(files_->read("/proc/sys/kernel/osrelease"));
  if (!release) return std::nullopt;
  auto osRelease = parseKeyValueFile(files_->read("/etc/os-release").value_or(""));
  if (osRelease.empty()) {
    osRelease = parseKeyValueFile(files_->read("/usr/lib/os-release").value_or(""));
  }
  std::string text = osRelease.contains("NAME") ? osRelease["NAME"] : "Linux";
  if (const auto version = osRelease.find("VERSION_ID");
      version != osRelease.end() && !version->second.empty()) {
    text += " " + version->second;
  }
  return text + " (" + *release + ")";
}

std::optional<std::string> SystemStatus::_parseBrandName(const std::optional<std::string>& brand) {
  if (!brand) return std::nullopt;
  std::vector<std::string> pieces(1);
  for (const char c : *brand) {
    if (std::isalnum(static_cast<unsigned char>(c))) {
      pieces.back().push_back(c);
    } else {
      pieces.emplace_back();
    }
  }
  std::string name;
  for (const std::string& piece : pieces) {
    if (piece == "CPU") break;
    if (piece.empty() || equalsIgnoringCase(piece, "r") || equalsIgnoringCase(piece, "tm") ||
        std::isdigit(static_cast<unsigned char>(piece.front()))) {
      continue;
    }
    if (!name.empty()) name += ' ';
    name += piece;
  }
  return name;
}

nlohmann::json SystemStatus::dictionary() const {
  return {
      {"computerName", orNull(computerName_)},
      {"sysName", orNull(sysName_)},
      {"sysUserName", orNull(sysUserName_)},
      {"sysFullUserName", orNull(sysFullUserName_)},
      {"sysOSVersion", orNull(sysOSVersion_)},
      {"sysPhysicalMemory", sysPhysicalMemory_},
      {"sysSerialNumber", orNull(sysSerialNumber_)},
      {"sysUUID", orNull(sysUUID_)},
      {"sysModelID", orNull(sysModelID_)},
      {"sysProcessorName", orNull(sysProcessorName_)},
      {"sysProcessorSpeed", orNull(sysProcessorSpeed_)},
      {"sysProcessorCount", orNull(sysProcessorCount_)},
  };
}

}  // namespace vexa
