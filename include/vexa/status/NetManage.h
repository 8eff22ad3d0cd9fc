#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"

namespace vexa {

class InterfaceAddresses;
struct DefaultRoute;
struct InterfaceAddress;
class MachineFiles;
class NetPPP;
class NetworkDaemon;
struct ActiveConnection;
class TrafficBook;

// The machine's network services and their traffic. With a network manager running, a service
// is one of its active connections (its id is the connection's UUID, its name the connection's),
// the primary one first, with the addresses, router and name servers of its IPv4
// configuration. Without one, a service is an interface (its id is the interface name): every
// hardware interface and every other one holding a global address, the one with the default
// route (the primary) first.
//
// Service record: "service_id", "is_primary", "user_defind_name" ("Ethernet", "Wi-Fi", else the
// interface name), "device_name", "connection_type" ("Ethernet", "IEEE80211", "PPP", else the
// kernel's device type), "device_ppp_name" and "ppp_status_info" for PPP links,
// "ipv4_addresses", "ipv4_subnetmasks", "ipv4_router", "ipv4_dns" (the primary's, from the
// resolver configuration), "ipv6_addresses", "linkactive_status", and for Ethernet and Wi-Fi
// hardware "link_speed" in bits per second. A key is present only when its value is known.
//
// Caches last until clearHistory(). Not thread safe: one thread uses it.
class VEXA_EXPORT NetManage {
 public:
  // The services of the machine under `root`; a root other than "/" is a captured tree with
  // no live addresses.
  static std::unique_ptr<NetManage> create(const std::string& root = "/");
  NetManage(std::shared_ptr<MachineFiles> files, std::unique_ptr<InterfaceAddresses> addresses,
            std::shared_ptr<NetPPP> ppp);
  // `daemon` is the network manager to ask first; null: the files alone.
  NetManage(std::shared_ptr<MachineFiles> files, std::unique_ptr<InterfaceAddresses> addresses,
            std::shared_ptr<NetPPP> ppp, std::unique_ptr<NetworkDaemon> daemon);
  ~NetManage();
  NetManage(const NetManage&) = delete;
  NetManage& operator=(const NetManage&) = delete;

  // The service records (an array), primary first.
  nlohmann::json queryInterfaceLists();
  std::optional<std::string> queryMainInterfaceName();
  std::optional<std::string> queryMainServiceID();
  std::optional<std::string> queryInterfaceNameWithServiceID(const std::string& serviceId);
  std::optional<std::string> queryServiceWithInterfaceName(const std::string& name);
  std::optional<std::string> queryUnderlyingInterfaceNameWithServiceID(
      const std::string& serviceId);
  uint64_t querySpeedWithServiceID(const std::string& serviceId);
  bool isUpWithinterfaceName(const std::string& name);
  // The traffic records of every interface but loopback (see TrafficBook), `seconds` after the
  // previous call; nothing when the counters cannot be read (the previous ones are kept). A PPP
  // link that is not connected is left out.
  std::optional<nlohmann::json> netStatsWithInterval(double seconds);
  // The link's speed in bits per second; 10,000,000 when the link does not say.
  uint64_t speedForInterfaceName(const std::string& name);
  // {"service", "statname", "speed", "name", "interfaceup"} of an interface, "primary" naming
  // the primary one.
  nlohmann::json interfaceConfigWithName(const std::string& name);
  // Forgets the services, the primary, the manager's connections and the speeds; keeps the
  // traffic records.
  void clearHistory();

 private:
  nlohmann::json serviceRecord(const std::string& name, const std::string& primary,
                               const std::vector<InterfaceAddress>& addresses,
                               const std::vector<DefaultRoute>& routes);
  std::string folderOf(const std::string& name) const;
  bool isHardware(const std::string& name) const;
  bool isWireless(const std::string& name) const;
  bool isLoopback(const std::string& name) const;
  // The manager's active connections, asked once until clearHistory(); null without a manager
  // or when it did not answer.
  const std::vector<ActiveConnection>* managed();
  nlohmann::json managedRecord(const ActiveConnection& connection,
                               const std::vector<InterfaceAddress>& addresses,
                               const std::vector<DefaultRoute>& routes);

  std::shared_ptr<MachineFiles> files_;
  std::unique_ptr<InterfaceAddresses> addresses_;
  std::shared_ptr<NetPPP> ppp_;
  std::unique_ptr<TrafficBook> traffic_;
  std::optional<nlohmann::json> interfaceDetails_;
  std::optional<std::string> primaryName_;
  bool primaryKnown_ = false;
  std::map<std::string, uint64_t> serviceSpeed_;
  std::unique_ptr<NetworkDaemon> daemon_;
  std::unique_ptr<std::vector<ActiveConnection>> connections_;
  bool connectionsAsked_ = false;
};

}  // namespace vexa
