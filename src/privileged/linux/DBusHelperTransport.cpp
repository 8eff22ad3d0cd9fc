// The helper protocol (HelperProtocol) over D-Bus: method Request(a{sv}) -> (a{sv}) on the
// system bus, or on the private bus the environment names.
#include <gio/gio.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "privileged/HelperTransport.h"
#include "privileged/linux/GVariantJson.h"
#include "vexa/privileged/HelperProtocol.h"

namespace vexa {

namespace {

// Tests and developers run the helper unprivileged on a bus of their own, named here.
constexpr const char* kPrivateBusVariable = "VEXA_HELPER_BUS_ADDRESS";
constexpr int kTimeoutMs = 60 * 60 * 1000;  // a tool such as find may take many minutes

std::optional<std::string> privateBusAddress() {
  const char* address = std::getenv(kPrivateBusVariable);
  if (!address || !*address) return std::nullopt;
  return std::string(address);
}

HelperTransport::Failure failureOf(const GError* error) {
  using Failure = HelperTransport::Failure;
  if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
      g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER) ||
      g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD) ||
      g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_OBJECT)) {
    return Failure::Invalid;  // no helper behind the name
  }
  if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) ||
      g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED) ||
      g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_DISCONNECTED)) {
    return Failure::Interrupted;
  }
  return Failure::Other;
}

struct ObjectUnref {
  void operator()(gpointer object) const { g_object_unref(object); }
};

// Safe from any thread: each request holds its own reference to the connection it uses.
class DBusHelperTransport final : public HelperTransport {
 public:
  Outcome send(const nlohmann::json& request) override {
    g_autoptr(GError) error = nullptr;
    g_autoptr(GDBusConnection) connection = connect(&error);
    if (!connection) return {std::nullopt, Failure::NoConnection};
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        connection, HelperProtocol::kBusName, HelperProtocol::kObjectPath,
        HelperProtocol::kInterface, HelperProtocol::kMethod,
        g_variant_new("(@a{sv})", dictionaryToVariant(request)), G_VARIANT_TYPE("(a{sv})"),
        G_DBUS_CALL_FLAGS_NONE /* the bus starts the helper on demand */, kTimeoutMs, nullptr,
        &error);
    if (!reply) return {std::nullopt, failureOf(error)};
    g_autoptr(GVariant) dictionary = g_variant_get_child_value(reply, 0);
    return {variantToDictionary(dictionary), Failure::None};
  }

  bool isPrivateBus() const override { return privateBusAddress().has_value(); }

 private:
  // A new reference to the connection this request goes over.
  GDBusConnection* connect(GError** error) {
    if (auto address = privateBusAddress()) return privateBus(*address, error);
    GDBusConnection* system = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, error);
    // The shared system-bus connection would end the whole process if the bus went away.
    if (system) g_dbus_connection_set_exit_on_close(system, FALSE);
    return system;
  }

  // The private bus's connection is kept while it stays open (a new one per request would cost
  // a handshake with the bus every time).
  GDBusConnection* privateBus(const std::string& address, GError** error) {
    std::lock_guard lock(mutex_);
    if (cached_ && (cachedAddress_ != address || g_dbus_connection_is_closed(cached_.get()))) {
      cached_.reset();
    }
    if (!cached_) {
      cached_.reset(g_dbus_connection_new_for_address_sync(
          address.c_str(),
          static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                            G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
          nullptr, nullptr, error));
      cachedAddress_ = address;
    }
    return cached_ ? G_DBUS_CONNECTION(g_object_ref(cached_.get())) : nullptr;
  }

  std::mutex mutex_;
  std::unique_ptr<GDBusConnection, ObjectUnref> cached_;  // guarded by mutex_
  std::string cachedAddress_;                             // guarded by mutex_
};

}  // namespace

std::shared_ptr<HelperTransport> makePlatformHelperTransport() {
  return std::make_shared<DBusHelperTransport>();
}

}  // namespace vexa
