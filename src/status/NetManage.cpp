#include "vexa/status/NetManage.h"

#include <algorithm>

#include "status/InterfaceAddresses.h"
#include "status/MachineFiles.h"
#include "status/NetworkDaemon.h"
#include "status/ProcParsers.h"
#include "status/TrafficBook.h"
#include "util/PathName.h"
#include "util/Utf8.h"
#include "vexa/status/NetPPP.h"

namespace vexa {

namespace {

constexpr const char* kNetFolder = "/sys/class/net";
constexpr uint64_t kDefaultSpeed = 10000000;
constexpr const char* kLoopbackType = "772";  // ARPHRD_LOOPBACK
constexpr const char* kEtherType = "1";       // ARPHRD_ETHER
constexpr const char* kPppType = "512";       // ARPHRD_PPP

// Names come from the kernel's tables; anything that could leave the class folder is not one.
// The kernel allows any bytes but "/", ":", blanks and NUL in a link's name; one that is not
// UTF-8 cannot be told in a dictionary, so it is no service.
bool isInterfaceName(const std::string& name) {
  return !name.empty() && name.size() < 64 && name.find('/') == std::string::npos && name != "." &&
         name != ".." && Utf8::isText(name);
}

// "255.255.255.0" for 24; empty for what is no IPv4 prefix.
std::string prefixMask(uint32_t prefix) {
  if (prefix > 32) return {};
  const uint32_t mask = prefix == 0 ? 0 : ~uint32_t{0} << (32 - prefix);
  return std::to_string(mask >> 24) + "." + std::to_string((mask >> 16) & 0xff) + "." +
         std::to_string((mask >> 8) & 0xff) + "." + std::to_string(mask & 0xff);
}

// The manager's connection types, as the services name them.
std::string connectionTypeOf(const std::string& type) {
  if (type == "802-3-ethernet") return "Ethernet";
  if (type == "802-11-wireless") return "IEEE80211";
  if (type == "pppoe" || type == "gsm" || type == "cdma") return "PPP";
  return type;
}

const ActiveConnection* primaryOf(const std::vector<ActiveConnection>& connections) {
  for (const auto& connection : connections) {
    if (connection.primary) return &connection;
  }
  return nullptr;
}

// Addresses held by a captured machine: none, as addresses are not files.
class NoAddresses final : public InterfaceAddresses {
 public:
  std::vector<InterfaceAddress> list() override { return {}; }
};

}  // namespace

std::unique_ptr<NetManage> NetManage::create(const std::string& root) {
  const bool live = root.empty() || root == "/";
  std::unique_ptr<InterfaceAddresses> addresses =
      live ? InterfaceAddresses::system() : std::make_unique<NoAddresses>();
  return std::make_unique<NetManage>(
      MachineFiles::underRoot(root), std::move(addresses),
      live ? std::shared_ptr<NetPPP>(&NetPPP::shared(), [](NetPPP*) {}) : NetPPP::create(root),
      live ? NetworkDaemon::system() : nullptr);
}

NetManage::NetManage(std::shared_ptr<MachineFiles> files,
                     std::unique_ptr<InterfaceAddresses> addresses, std::shared_ptr<NetPPP> ppp)
    : NetManage(std::move(files), std::move(addresses), std::move(ppp), nullptr) {}

NetManage::NetManage(std::shared_ptr<MachineFiles> files,
                     std::unique_ptr<InterfaceAddresses> addresses, std::shared_ptr<NetPPP> ppp,
                     std::unique_ptr<NetworkDaemon> daemon)
    : files_(std::move(files)),
      addresses_(std::move(addresses)),
      ppp_(std::move(ppp)),
      traffic_(std::make_unique<TrafficBook>()),
      daemon_(std::move(daemon)) {}

NetManage::~NetManage() = default;

std::string NetManage::folderOf(const std::string& name) const {
  return std::string(kNetFolder) + "/" + name;
}

// "device" and "phy80211" are links to the device's folder (a copied tree may hold the folder
// itself): reading the link is cheap, listing the folder is the fallback.
bool NetManage::isHardware(const std::string& name) const {
  const std::string device = folderOf(name) + "/device";
  return files_->readLink(device) || !files_->list(device).empty();
}

bool NetManage::isWireless(const std::string& name) const {
  const std::string phy = folderOf(name) + "/phy80211";
  return files_->readLink(phy) || !files_->list(phy).empty() ||
         !files_->list(folderOf(name) + "/wireless").empty();
}

bool NetManage::isLoopback(const std::string& name) const {
  return name == "lo" || trimmedValue(files_->read(folderOf(name) + "/type")) == kLoopbackType;
}

const std::vector<ActiveConnection>* NetManage::managed() {
  if (!connectionsAsked_) {
    connectionsAsked_ = true;
    connections_.reset();
    if (daemon_) {
      if (auto found = daemon_->activeConnections()) {
        connections_ = std::make_unique<std::vector<ActiveConnection>>(std::move(*found));
      }
    }
  }
  return connections_.get();
}

void NetManage::clearHistory() {
  connectionsAsked_ = false;
  connections_.reset();
  interfaceDetails_.reset();
  primaryName_.reset();
  primaryKnown_ = false;
  serviceSpeed_.clear();
}

std::optional<std::string> NetManage::queryMainInterfaceName() {
  if (!primaryKnown_) {
    primaryKnown_ = true;
    primaryName_.reset();
    if (const auto* connections = managed()) {
      if (const auto* primary = primaryOf(*connections); primary && !primary->interfaces.empty()) {
        primaryName_ = primary->interfaces.front();
      }
    } else if (const auto table = files_->read("/proc/net/route")) {
      for (const auto& route : parseDefaultRoutes(*table)) {
        if (isInterfaceName(route.interface)) {
          primaryName_ = route.interface;
          break;
        }
      }
    }
  }
  return primaryName_;
}

std::optional<std::string> NetManage::queryMainServiceID() {
  if (const auto* connections = managed()) {
    if (const auto* primary = primaryOf(*connections)) return primary->uuid;
    return std::nullopt;
  }
  return queryMainInterfaceName();
}

std::optional<std::string> NetManage::queryInterfaceNameWithServiceID(
    const std::string& serviceId) {
  if (const auto* connections = managed()) {
    for (const auto& connection : *connections) {
      if (connection.uuid == serviceId && !connection.interfaces.empty()) {
        return connection.interfaces.front();
      }
    }
    return std::nullopt;
  }
  if (!isInterfaceName(serviceId) || files_->list(folderOf(serviceId)).empty()) {
    return std::nullopt;
  }
  return serviceId;
}

std::optional<std::string> NetManage::queryServiceWithInterfaceName(const std::string& name) {
  if (const auto* connections = managed()) {
    for (const auto& connection : *connections) {
      const auto& names = connection.interfaces;
      if (std::find(names.begin(), names.end(), name) != names.end()) return connection.uuid;
    }
    return std::nullopt;
  }
  return queryInterfaceNameWithServiceID(name);
}

std::optional<std::string> NetManage::queryUnderlyingInterfaceNameWithServiceID(
    const std::string& serviceId) {
  return queryInterfaceNameWithServiceID(serviceId);
}

uint64_t NetManage::speedForInterfaceName(const std::string& name) {
  if (!isInterfaceName(name)) return kDefaultSpeed;
  // Mb/s; virtual and unplugged links read -1 or refuse the read.
  const auto text = files_->read(folderOf(name) + "/speed");
  const auto megabits = parseUnsigned(text.value_or(""));
  if (!megabits || *megabits == 0 || *megabits > UINT64_MAX / 1000000) return kDefaultSpeed;
  return *megabits * 1000000;
}

uint64_t NetManage::querySpeedWithServiceID(const std::string& serviceId) {
  if (const auto found = serviceSpeed_.find(serviceId); found != serviceSpeed_.end()) {
    return found->second;
  }
  const std::string name =
      managed() ? queryInterfaceNameWithServiceID(serviceId).value_or("") : serviceId;
  const uint64_t speed =
      isInterfaceName(name) && isHardware(name) ? speedForInterfaceName(name) : kDefaultSpeed;
  serviceSpeed_[serviceId] = speed;
  return speed;
}

bool NetManage::isUpWithinterfaceName(const std::string& name) {
  if (!isInterfaceName(name)) return true;
  if (PathName::hasPrefix(name, "ppp")) {
    return ppp_->queryStatusWithInterfaceName(name).value("status", 0u) == NetPPP::kConnected;
  }
  if (!isHardware(name)) return true;
  const auto operstate = trimmedValue(files_->read(folderOf(name) + "/operstate"));
  return !operstate || *operstate != "down";
}

nlohmann::json NetManage::serviceRecord(const std::string& name, const std::string& primary,
                                        const std::vector<InterfaceAddress>& addresses,
                                        const std::vector<DefaultRoute>& routes) {
  const std::string folder = folderOf(name);
  const bool hardware = isHardware(name);
  const bool wireless = hardware && isWireless(name);
  const auto type = trimmedValue(files_->read(folder + "/type"));
  const bool ppp = PathName::hasPrefix(name, "ppp") || type == kPppType;
  const bool ethernet = hardware && !wireless && type == kEtherType;

  nlohmann::json record = {{"service_id", name}, {"is_primary", name == primary}};
  record["user_defind_name"] = wireless ? "Wi-Fi" : ethernet ? "Ethernet" : name;
  record["device_name"] = name;
  if (wireless) {
    record["connection_type"] = "IEEE80211";
  } else if (ppp) {
    record["connection_type"] = "PPP";
  } else if (ethernet) {
    record["connection_type"] = "Ethernet";
  } else {
    std::string kind;
    for (const auto& [key, value] :
         parseKeyValueFile(files_->read(folder + "/uevent").value_or(""))) {
      if (key == "DEVTYPE") kind = value;
    }
    if (kind.empty() && type == kEtherType) kind = "Ethernet";
    if (!kind.empty()) record["connection_type"] = kind;
  }
  if (ppp) {
    record["device_ppp_name"] = name;
    record["ppp_status_info"] = ppp_->queryStatusWithInterfaceName(name);
  }

  nlohmann::json v4 = nlohmann::json::array();
  nlohmann::json masks = nlohmann::json::array();
  nlohmann::json v6 = nlohmann::json::array();
  for (const auto& address : addresses) {
    if (address.interface != name) continue;
    if (address.ipv6) {
      v6.push_back(address.address);
    } else {
      v4.push_back(address.address);
      masks.push_back(address.netmask);
    }
  }
  if (!v4.empty()) {
    record["ipv4_addresses"] = v4;
    record["ipv4_subnetmasks"] = masks;
  }
  for (const auto& route : routes) {
    if (route.interface == name && !route.gateway.empty()) {
      record["ipv4_router"] = route.gateway;
      break;
    }
  }
  if (name == primary) {
    // systemd-resolved's list of the real servers, else the file resolvers read (which may
    // name only resolved's local stub).
    auto resolv = files_->read("/run/systemd/resolve/resolv.conf");
    if (!resolv) resolv = files_->read("/etc/resolv.conf");
    const auto servers = parseResolvConf(resolv.value_or(""));
    if (!servers.empty()) record["ipv4_dns"] = servers;
  }
  if (!v6.empty()) record["ipv6_addresses"] = v6;
  if (const auto operstate = trimmedValue(files_->read(folder + "/operstate"))) {
    const auto carrier = trimmedValue(files_->read(folder + "/carrier"));
    record["linkactive_status"] = *operstate == "up" || (*operstate == "unknown" && carrier == "1");
  }
  if (ethernet || wireless) record["link_speed"] = speedForInterfaceName(name);
  return record;
}

nlohmann::json NetManage::managedRecord(const ActiveConnection& connection,
                                        const std::vector<InterfaceAddress>& addresses,
                                        const std::vector<DefaultRoute>& routes) {
  const std::string name = connection.interfaces.empty() ? "" : connection.interfaces.front();
  // What the interface's files tell (its kind, link, speed, IPv6 addresses), then the
  // manager's own view of the connection over it.
  nlohmann::json record =
      isInterfaceName(name) ? serviceRecord(name, connection.primary ? name : "", addresses, routes)
                            : nlohmann::json::object();
  record["service_id"] = connection.uuid;
  record["is_primary"] = connection.primary;
  record["user_defind_name"] = connection.id;
  if (!name.empty()) record["device_name"] = name;
  if (!record.contains("connection_type") && !connection.type.empty()) {
    record["connection_type"] = connectionTypeOf(connection.type);
  }
  for (const char* key : {"ipv4_addresses", "ipv4_subnetmasks", "ipv4_router", "ipv4_dns"}) {
    record.erase(key);
  }
  if (!connection.ipv4.empty()) {
    nlohmann::json v4 = nlohmann::json::array();
    nlohmann::json masks = nlohmann::json::array();
    for (const auto& address : connection.ipv4) {
      v4.push_back(address.address);
      masks.push_back(prefixMask(address.prefix));
    }
    record["ipv4_addresses"] = v4;
    record["ipv4_subnetmasks"] = masks;
  }
  if (!connection.gateway.empty()) record["ipv4_router"] = connection.gateway;
  if (!connection.dns.empty()) record["ipv4_dns"] = connection.dns;
  return record;
}

nlohmann::json NetManage::queryInterfaceLists() {
  if (interfaceDetails_) {
    // Records holding "pppstatus" would be refreshed here; none is built with that key.
    return *interfaceDetails_;
  }
  if (const auto* connections = managed()) {
    const auto addresses = addresses_->list();
    const auto routes = parseDefaultRoutes(files_->read("/proc/net/route").value_or(""));
    nlohmann::json list = nlohmann::json::array();
    for (const auto& connection : *connections) {
      list.push_back(managedRecord(connection, addresses, routes));
    }
    interfaceDetails_ = list;
    return list;
  }
  std::vector<std::string> names;
  std::vector<std::string> addressed;
  const auto addresses = addresses_->list();
  const auto routes = parseDefaultRoutes(files_->read("/proc/net/route").value_or(""));
  for (const auto& address : addresses) {
    if (address.global) addressed.push_back(address.interface);
  }
  for (const auto& name : files_->list(kNetFolder)) {
    if (!isInterfaceName(name) || isLoopback(name)) continue;
    const bool listed =
        isHardware(name) || std::find(addressed.begin(), addressed.end(), name) != addressed.end();
    if (listed) names.push_back(name);
  }
  const std::string primary = queryMainInterfaceName().value_or("");
  if (const auto found = std::find(names.begin(), names.end(), primary);
      found != names.end() && found != names.begin()) {
    std::rotate(names.begin(), found, found + 1);
  }
  nlohmann::json list = nlohmann::json::array();
  for (const auto& name : names) list.push_back(serviceRecord(name, primary, addresses, routes));
  interfaceDetails_ = list;
  return list;
}

std::optional<nlohmann::json> NetManage::netStatsWithInterval(double seconds) {
  const auto text = files_->read("/proc/net/dev");
  if (!text) return std::nullopt;
  std::vector<InterfaceCounters> reading;
  for (const auto& counters : parseNetDev(*text)) {
    if (!isInterfaceName(counters.name) || isLoopback(counters.name)) continue;
    const bool ppp = PathName::hasPrefix(counters.name, "ppp");
    if (ppp && ppp_->queryStatusWithInterfaceName(counters.name).value("status", 0u) !=
                   NetPPP::kConnected) {
      continue;
    }
    const auto index =
        parseUnsigned(files_->read(folderOf(counters.name) + "/ifindex").value_or(""));
    reading.push_back(InterfaceCounters{counters.name, counters.receivedBytes, counters.sentBytes,
                                        static_cast<int64_t>(index.value_or(0) & INT64_MAX),
                                        ppp || isUpWithinterfaceName(counters.name)});
  }
  return traffic_->book(reading, seconds);
}

nlohmann::json NetManage::interfaceConfigWithName(const std::string& name) {
  const std::string interface = name == "primary" ? queryMainInterfaceName().value_or("") : name;
  nlohmann::json config = {{"name", name}};
  if (interface.empty()) return config;
  config["service"] =
      managed() ? queryServiceWithInterfaceName(interface).value_or(interface) : interface;
  config["statname"] = interface;
  config["speed"] = querySpeedWithServiceID(interface);
  config["interfaceup"] = isUpWithinterfaceName(interface);
  return config;
}

}  // namespace vexa
