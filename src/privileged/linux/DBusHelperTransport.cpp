// The helper protocol over D-Bus: method Request(a{sv}) -> (a{sv}) of the interface
// "com.tarnwick.PrivilegesHelper" at the object "/com/tarnwick/PrivilegesHelper".
#include <gio/gio.h>

#include <cstdlib>
#include <mutex>
#include <string>

#include "privileged/HelperTransport.h"
#include "privileged/linux/GVariantJson.h"

namespace vexa {

namespace {

constexpr const char* kName = "com.tarnwick.PrivilegesHelper";
constexpr const char* kPath = "/com/tarnwick/PrivilegesHelper";
constexpr int kTimeoutMs = 60 * 60 * 1000;  // a tool such as find may take many minutes

class DBusHelperTransport final : public HelperTransport {
 public:
  ~DBusHelperTransport() override {
    if (cached_) g_object_unref(cached_);
  }

  // A connection to the bus in VEXA_HELPER_BUS_ADDRESS, kept while it stays open (a new one
  // per request would cost a handshake with the bus every time).
  GDBusConnection* privateBus(const std::string& address, GError** error) {
    std::lock_guard lock(mutex_);
    if (cached_ && (cachedAddress_ != address || g_dbus_connection_is_closed(cached_))) {
      g_object_unref(cached_);
      cached_ = nullptr;
    }
    if (!cached_) {
      cached_ = g_dbus_connection_new_for_address_sync(
          address.c_str(),
          static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                            G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
          nullptr, nullptr, error);
      cachedAddress_ = address;
    }
    return cached_ ? static_cast<GDBusConnection*>(g_object_ref(cached_)) : nullptr;
  }

  Outcome send(const nlohmann::json& request) override {
    GError* error = nullptr;
    GDBusConnection* connection = nullptr;
    if (const char* address = std::getenv("VEXA_HELPER_BUS_ADDRESS"); address && *address) {
      connection = privateBus(address, &error);
    } else {
      connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
      // The shared system-bus connection would end the whole process if the bus went away.
      if (connection) g_dbus_connection_set_exit_on_close(connection, FALSE);
    }
    if (!connection) {
      g_clear_error(&error);
      return {std::nullopt, Failure::NoConnection};
    }
    GVariant* reply = g_dbus_connection_call_sync(
        connection, kName, kPath, kName, "Request",
        g_variant_new("(@a{sv})", dictionaryToVariant(request)), G_VARIANT_TYPE("(a{sv})"),
        G_DBUS_CALL_FLAGS_NONE /* the bus starts the helper on demand */, kTimeoutMs, nullptr,
        &error);
    Outcome outcome;
    if (reply) {
      GVariant* dictionary = g_variant_get_child_value(reply, 0);
      outcome.reply = variantToDictionary(dictionary);
      g_variant_unref(dictionary);
      g_variant_unref(reply);
    } else if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
               g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER) ||
               g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD) ||
               g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_OBJECT)) {
      outcome.failure = Failure::Invalid;  // no helper behind the name
    } else if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) ||
               g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED) ||
               g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_DISCONNECTED)) {
      outcome.failure = Failure::Interrupted;
    } else {
      outcome.failure = Failure::Other;
    }
    g_clear_error(&error);
    g_object_unref(connection);
    return outcome;
  }

 private:
  std::mutex mutex_;
  GDBusConnection* cached_ = nullptr;
  std::string cachedAddress_;
};

}  // namespace

std::shared_ptr<HelperTransport> makePlatformHelperTransport() {
  return std::make_shared<DBusHelperTransport>();
}

}  // namespace vexa
