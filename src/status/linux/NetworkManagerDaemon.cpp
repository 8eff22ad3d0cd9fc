// The network manager's active connections on the system bus: the manager's ActiveConnections
// and PrimaryConnection, each connection's devices and its IPv4 configuration object.
#include <algorithm>
#include <string>

#include "status/NetworkDaemon.h"
#include "status/linux/SystemBusConnection.h"

namespace vexa {

namespace {

constexpr const char* kName = "org.freedesktop.NetworkManager";
constexpr const char* kPath = "/org/freedesktop/NetworkManager";
constexpr const char* kInterface = "org.freedesktop.NetworkManager";
constexpr const char* kActiveInterface = "org.freedesktop.NetworkManager.Connection.Active";
constexpr const char* kDeviceInterface = "org.freedesktop.NetworkManager.Device";
constexpr const char* kIp4Interface = "org.freedesktop.NetworkManager.IP4Config";

// One property of an a{sv}, when it has the type asked for; owned by the caller.
GVariant* lookup(GVariant* properties, const char* key, const GVariantType* type) {
  return g_variant_lookup_value(properties, key, type);
}

std::string text(GVariant* properties, const char* key, const GVariantType* type) {
  GVariant* value = lookup(properties, key, type);
  if (value == nullptr) return {};
  std::string result = g_variant_get_string(value, nullptr);
  g_variant_unref(value);
  return result;
}

std::vector<std::string> paths(GVariant* properties, const char* key) {
  std::vector<std::string> found;
  GVariant* value = lookup(properties, key, G_VARIANT_TYPE_OBJECT_PATH_ARRAY);
  if (value == nullptr) return found;
  GVariantIter iter;
  g_variant_iter_init(&iter, value);
  const gchar* path = nullptr;
  while (g_variant_iter_next(&iter, "&o", &path)) found.emplace_back(path);
  g_variant_unref(value);
  return found;
}

// The "address" (and "prefix") of each entry of an aa{sv} list; entries without an address of
// the right type are skipped.
std::vector<ActiveConnection::Address> addressData(GVariant* properties, const char* key) {
  std::vector<ActiveConnection::Address> found;
  GVariant* list = lookup(properties, key, G_VARIANT_TYPE("aa{sv}"));
  if (list == nullptr) return found;
  GVariantIter iter;
  g_variant_iter_init(&iter, list);
  GVariant* entry = nullptr;
  while ((entry = g_variant_iter_next_value(&iter)) != nullptr) {
    ActiveConnection::Address address;
    address.address = text(entry, "address", G_VARIANT_TYPE_STRING);
    if (GVariant* prefix = lookup(entry, "prefix", G_VARIANT_TYPE_UINT32)) {
      address.prefix = g_variant_get_uint32(prefix);
      g_variant_unref(prefix);
    }
    if (!address.address.empty()) found.push_back(std::move(address));
    g_variant_unref(entry);
  }
  g_variant_unref(list);
  return found;
}

class NetworkManagerDaemon final : public NetworkDaemon {
 public:
  explicit NetworkManagerDaemon(std::unique_ptr<SystemBusConnection> bus) : bus_(std::move(bus)) {}

  std::optional<std::vector<ActiveConnection>> activeConnections() override {
    GVariant* manager = bus_->properties(kPath, kInterface);
    if (manager == nullptr) return std::nullopt;
    const auto active = paths(manager, "ActiveConnections");
    const std::string primary = text(manager, "PrimaryConnection", G_VARIANT_TYPE_OBJECT_PATH);
    g_variant_unref(manager);
    std::vector<ActiveConnection> connections;
    for (const auto& path : active) {
      auto connection = read(path);
      if (!connection) return std::nullopt;
      connection->primary = path == primary;
      connections.push_back(std::move(*connection));
    }
    std::stable_partition(connections.begin(), connections.end(),
                          [](const ActiveConnection& c) { return c.primary; });
    return connections;
  }

  bool follow(std::function<void()> changed) override {
    auto shared = std::make_shared<std::function<void()>>(std::move(changed));
    bus_->subscribe(kInterface, "StateChanged", nullptr, shared);
    // Properties of any of the manager's objects, announced the standard way or by the
    // manager's older per-interface signal.
    bus_->subscribe(nullptr, "PropertiesChanged", nullptr, shared);
    bus_->followOwner(shared);
    return true;
  }

 private:
  std::optional<ActiveConnection> read(const std::string& path) {
    GVariant* properties = bus_->properties(path.c_str(), kActiveInterface);
    if (properties == nullptr) return std::nullopt;
    ActiveConnection connection;
    connection.uuid = text(properties, "Uuid", G_VARIANT_TYPE_STRING);
    connection.id = text(properties, "Id", G_VARIANT_TYPE_STRING);
    connection.type = text(properties, "Type", G_VARIANT_TYPE_STRING);
    const auto devices = paths(properties, "Devices");
    const std::string ip4 = text(properties, "Ip4Config", G_VARIANT_TYPE_OBJECT_PATH);
    g_variant_unref(properties);
    for (const auto& device : devices) {
      GVariant* found = bus_->properties(device.c_str(), kDeviceInterface);
      if (found == nullptr) continue;  // a device that went meanwhile
      // The IP interface when it differs (a PPP link over a modem), else the device's own.
      std::string name = text(found, "IpInterface", G_VARIANT_TYPE_STRING);
      if (name.empty()) name = text(found, "Interface", G_VARIANT_TYPE_STRING);
      g_variant_unref(found);
      if (!name.empty()) connection.interfaces.push_back(std::move(name));
    }
    if (!ip4.empty() && ip4 != "/") {
      if (GVariant* config = bus_->properties(ip4.c_str(), kIp4Interface)) {
        connection.ipv4 = addressData(config, "AddressData");
        connection.gateway = text(config, "Gateway", G_VARIANT_TYPE_STRING);
        for (auto& server : addressData(config, "NameserverData")) {
          connection.dns.push_back(std::move(server.address));
        }
        g_variant_unref(config);
      }
    }
    return connection;
  }

  std::unique_ptr<SystemBusConnection> bus_;
};

}  // namespace

std::unique_ptr<NetworkDaemon> NetworkDaemon::system() {
  auto bus = SystemBusConnection::open(kName, "network manager");
  if (!bus) return nullptr;
  return std::make_unique<NetworkManagerDaemon>(std::move(bus));
}

}  // namespace vexa
