#include "vexa/status/NetPPP.h"

#include <charconv>
#include <mutex>

#include "status/MachineFiles.h"
#include "status/ProcParsers.h"
#include "util/PathName.h"

namespace vexa {

namespace {

constexpr uint64_t kUp = 0x1;        // IFF_UP
constexpr uint64_t kRunning = 0x40;  // IFF_RUNNING

std::optional<uint64_t> hexFlags(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  std::string_view value = *text;
  while (!value.empty() && (value.back() == '\n' || value.back() == ' ')) value.remove_suffix(1);
  if (PathName::hasPrefix(value, "0x")) value.remove_prefix(2);
  uint64_t flags = 0;
  const auto [end, ec] = std::from_chars(value.data(), value.data() + value.size(), flags, 16);
  if (ec != std::errc() || end != value.data() + value.size() || value.empty()) {
    return std::nullopt;
  }
  return flags;
}

}  // namespace

NetPPP& NetPPP::shared() {
  static const std::shared_ptr<NetPPP> instance = create("/");
  return *instance;
}

std::shared_ptr<NetPPP> NetPPP::create(const std::string& root) {
  return std::shared_ptr<NetPPP>(new NetPPP(MachineFiles::underRoot(root)));
}

NetPPP::NetPPP(std::shared_ptr<MachineFiles> files) : files_(std::move(files)) {}

nlohmann::json NetPPP::queryStatusWithInterfaceName(const std::string& name) const {
  nlohmann::json status = {{"status", 0u},
                           {"inBytes", 0u},
                           {"outBytes", 0u},
                           {"timeElapsed", 0u},
                           {"timeRemaining", 0u}};
  if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..") {
    return status;
  }
  const std::string folder = "/sys/class/net/" + name;
  const auto flags = hexFlags(files_->read(folder + "/flags"));
  if (!flags || (*flags & (kUp | kRunning)) != (kUp | kRunning)) return status;
  status["status"] = kConnected;
  const auto in = parseUnsigned(files_->read(folder + "/statistics/rx_bytes").value_or(""));
  const auto out = parseUnsigned(files_->read(folder + "/statistics/tx_bytes").value_or(""));
  status["inBytes"] = static_cast<uint32_t>(in.value_or(0));
  status["outBytes"] = static_cast<uint32_t>(out.value_or(0));
  return status;
}

nlohmann::json NetPPP::queryStatusWithServiceID(const std::string& serviceId) const {
  return queryStatusWithInterfaceName(serviceId);
}

int32_t NetPPP::connectWithServiceID(const std::string& /*serviceId*/) { return -1; }
int32_t NetPPP::disconnectWithServiceID(const std::string& /*serviceId*/) { return -1; }

int32_t NetPPP::queryPPPconfdLinkCount() const {
  int32_t count = 0;
  for (const auto& name : files_->list("/sys/class/net")) {
    if (PathName::hasPrefix(name, "ppp")) ++count;
  }
  return count;
}

}  // namespace vexa
