// The power daemon on the system bus: its devices, the display device that sums up the
// batteries, and the signals that tell of changes.
#include <gio/gio.h>

#include <string>

#include "status/PowerDaemon.h"
#include "status/linux/SystemBusConnection.h"

namespace vexa {

namespace {

constexpr const char* kName = "org.freedesktop.UPower";
constexpr const char* kPath = "/org/freedesktop/UPower";
constexpr const char* kInterface = "org.freedesktop.UPower";
constexpr const char* kDeviceInterface = "org.freedesktop.UPower.Device";
constexpr const char* kDisplayDevice = "/org/freedesktop/UPower/devices/DisplayDevice";
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
  explicit UPowerDaemon(std::unique_ptr<SystemBusConnection> bus) : bus_(std::move(bus)) {}

  std::optional<Devices> devices() override {
    GVariant* listed = bus_->call(kPath, kInterface, "EnumerateDevices", nullptr, "(ao)");
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
    auto shared = std::make_shared<std::function<void()>>(std::move(changed));
    bus_->subscribe("org.freedesktop.DBus.Properties", "PropertiesChanged", kDeviceInterface,
                    shared);
    bus_->subscribe(kInterface, "DeviceAdded", nullptr, shared);
    bus_->subscribe(kInterface, "DeviceRemoved", nullptr, shared);
    bus_->followOwner(shared);
    return true;
  }

 private:
  std::optional<PowerDevice> properties(const char* path) {
    GVariant* all = bus_->properties(path, kDeviceInterface);
    if (all == nullptr) return std::nullopt;
    PowerDevice device = deviceFrom(path, all);
    g_variant_unref(all);
    return device;
  }

  std::unique_ptr<SystemBusConnection> bus_;
};

}  // namespace

std::unique_ptr<PowerDaemon> PowerDaemon::system() {
  auto bus = SystemBusConnection::open(kName, "power daemon");
  if (!bus) return nullptr;
  return std::make_unique<UPowerDaemon>(std::move(bus));
}

}  // namespace vexa
