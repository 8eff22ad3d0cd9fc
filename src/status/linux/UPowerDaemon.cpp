// The power daemon on the system bus, over a connection of our own (never the process's shared
// one, so neither the host's use of it nor a bus that comes and goes can get in each other's
// way). Calls never start the daemon and time out after a few seconds.
#include <gio/gio.h>

#include <cstdlib>
#include <string>

#include "status/PowerDaemon.h"
#include "util/RunGuarded.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

constexpr const char* kName = "org.freedesktop.UPower";
constexpr const char* kPath = "/org/freedesktop/UPower";
constexpr const char* kInterface = "org.freedesktop.UPower";
constexpr const char* kDeviceInterface = "org.freedesktop.UPower.Device";
constexpr const char* kDisplayDevice = "/org/freedesktop/UPower/devices/DisplayDevice";
constexpr const char* kSystemBus = "unix:path=/run/dbus/system_bus_socket";
constexpr int kCallTimeoutMs = 3000;
// The daemon's device types.
constexpr guint32 kLinePowerType = 1;
constexpr guint32 kBatteryType = 2;

template <typename T>
std::optional<T> fromVariant(GVariant* value);

template <>
std::optional<bool> fromVariant(GVariant* value) {
  if (!g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN)) return std::nullopt;
  return g_variant_get_boolean(value) != FALSE;
}

template <>
std::optional<double> fromVariant(GVariant* value) {
  if (!g_variant_is_of_type(value, G_VARIANT_TYPE_DOUBLE)) return std::nullopt;
  return g_variant_get_double(value);
}

template <>
std::optional<uint32_t> fromVariant(GVariant* value) {
  if (!g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32)) return std::nullopt;
  return g_variant_get_uint32(value);
}

// Counts come as int64 (times) or int32 (cycles); either is taken.
template <>
std::optional<int64_t> fromVariant(GVariant* value) {
  if (g_variant_is_of_type(value, G_VARIANT_TYPE_INT64)) return g_variant_get_int64(value);
  if (g_variant_is_of_type(value, G_VARIANT_TYPE_INT32)) return g_variant_get_int32(value);
  return std::nullopt;
}

// One device from its a{sv} of properties; values of an unexpected type are left out.
PowerDevice deviceFrom(const std::string& path, GVariant* properties) {
  PowerDevice device;
  device.path = path;
  GVariantIter iter;
  g_variant_iter_init(&iter, properties);
  const gchar* key = nullptr;
  GVariant* value = nullptr;
  while (g_variant_iter_next(&iter, "{&sv}", &key, &value)) {
    const std::string name = key;
    if (name == "Type") {
      if (const auto type = fromVariant<uint32_t>(value)) {
        device.kind = *type == kLinePowerType ? PowerDevice::Kind::LinePower
                      : *type == kBatteryType ? PowerDevice::Kind::Battery
                                              : PowerDevice::Kind::Other;
      }
    } else if (name == "PowerSupply") {
      device.powerSupply = fromVariant<bool>(value).value_or(true);
    } else if (name == "Online") {
      device.online = fromVariant<bool>(value);
    } else if (name == "IsPresent") {
      device.present = fromVariant<bool>(value);
    } else if (name == "State") {
      device.state = fromVariant<uint32_t>(value);
    } else if (name == "Percentage") {
      device.percentage = fromVariant<double>(value);
    } else if (name == "Energy") {
      device.energy = fromVariant<double>(value);
    } else if (name == "EnergyFull") {
      device.energyFull = fromVariant<double>(value);
    } else if (name == "EnergyFullDesign") {
      device.energyFullDesign = fromVariant<double>(value);
    } else if (name == "EnergyRate") {
      device.energyRate = fromVariant<double>(value);
    } else if (name == "Voltage") {
      device.voltage = fromVariant<double>(value);
    } else if (name == "Temperature") {
      device.temperature = fromVariant<double>(value);
    } else if (name == "TimeToEmpty") {
      device.timeToEmpty = fromVariant<int64_t>(value);
    } else if (name == "TimeToFull") {
      device.timeToFull = fromVariant<int64_t>(value);
    } else if (name == "ChargeCycles") {
      device.chargeCycles = fromVariant<int64_t>(value);
    }
    g_variant_unref(value);
  }
  // A line-power device that does not say its type still says whether it is online.
  if (device.kind == PowerDevice::Kind::Other && device.online) {
    device.kind = PowerDevice::Kind::LinePower;
  }
  return device;
}

class UPowerDaemon final : public PowerDaemon {
 public:
  explicit UPowerDaemon(GDBusConnection* connection) : connection_(connection) {}
  ~UPowerDaemon() override {
    for (const guint id : subscriptions_) g_dbus_connection_signal_unsubscribe(connection_, id);
    g_object_unref(connection_);
  }

  std::optional<Devices> devices() override {
    GVariant* listed = call(kPath, kInterface, "EnumerateDevices", nullptr, "(ao)");
    if (listed == nullptr) return std::nullopt;
    Devices found;
    GVariantIter* paths = nullptr;
    g_variant_get(listed, "(ao)", &paths);
    const gchar* path = nullptr;
    bool answered = true;
    while (answered && g_variant_iter_next(paths, "&o", &path)) {
      if (auto device = properties(path)) {
        found.devices.push_back(std::move(*device));
      } else {
        answered = false;
      }
    }
    g_variant_iter_free(paths);
    g_variant_unref(listed);
    if (!answered) return std::nullopt;
    if (auto display = properties(kDisplayDevice);
        display && display->kind == PowerDevice::Kind::Battery && display->present.value_or(true)) {
      found.display = std::move(*display);
    }
    return found;
  }

  bool follow(std::function<void()> changed) override {
    RunLoop::current();  // the calling thread's loop is where signals are delivered
    auto shared = std::make_shared<std::function<void()>>(std::move(changed));
    subscribe(kName, "org.freedesktop.DBus.Properties", "PropertiesChanged", nullptr,
              kDeviceInterface, shared);
    subscribe(kName, kInterface, "DeviceAdded", kPath, nullptr, shared);
    subscribe(kName, kInterface, "DeviceRemoved", kPath, nullptr, shared);
    // The daemon starting or stopping: its name changing owner.
    subscribe("org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
              "/org/freedesktop/DBus", kName, shared);
    return true;
  }

 private:
  // The reply, or null after logging why there is none.
  GVariant* call(const char* path, const char* interface, const char* method, GVariant* parameters,
                 const char* replyType) {
    g_autoptr(GError) error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        connection_, kName, path, interface, method, parameters, G_VARIANT_TYPE(replyType),
        G_DBUS_CALL_FLAGS_NO_AUTO_START, kCallTimeoutMs, nullptr, &error);
    if (reply == nullptr) {
      // Said once for as long as the same thing goes wrong: a machine without the daemon
      // would otherwise say so at every reading.
      if (lastError_ != error->message) {
        lastError_ = error->message;
        SystemLog::log("power daemon: %s %s: %s; reading the power-supply files", path, method,
                       error->message);
      }
    } else {
      lastError_.clear();
    }
    return reply;
  }

  std::optional<PowerDevice> properties(const char* path) {
    GVariant* reply = call(path, "org.freedesktop.DBus.Properties", "GetAll",
                           g_variant_new("(s)", kDeviceInterface), "(a{sv})");
    if (reply == nullptr) return std::nullopt;
    GVariant* all = g_variant_get_child_value(reply, 0);
    PowerDevice device = deviceFrom(path, all);
    g_variant_unref(all);
    g_variant_unref(reply);
    return device;
  }

  void subscribe(const char* sender, const char* interface, const char* member, const char* path,
                 const char* arg0, const std::shared_ptr<std::function<void()>>& changed) {
    subscriptions_.push_back(g_dbus_connection_signal_subscribe(
        connection_, sender, interface, member, path, arg0, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
           gpointer data) {
          runGuarded("power daemon signal",
                     **static_cast<std::shared_ptr<std::function<void()>>*>(data));
        },
        new std::shared_ptr<std::function<void()>>(changed),
        [](gpointer data) { delete static_cast<std::shared_ptr<std::function<void()>>*>(data); }));
  }

  GDBusConnection* connection_;
  std::vector<guint> subscriptions_;
  std::string lastError_;
};

}  // namespace

std::unique_ptr<PowerDaemon> PowerDaemon::system() {
  const char* set = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::string address = set && *set ? set : kSystemBus;
  g_autoptr(GError) error = nullptr;
  GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  if (connection == nullptr) {
    SystemLog::log("no system bus for the power daemon (%s): reading the power-supply files",
                   error->message);
    return nullptr;
  }
  // The connection is ours alone: its end must not end the process.
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  return std::make_unique<UPowerDaemon>(connection);
}

}  // namespace vexa
