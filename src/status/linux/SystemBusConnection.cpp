#include "status/linux/SystemBusConnection.h"

#include <cstdlib>

#include "util/RunGuarded.h"
#include "vexa/util/RunLoop.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

constexpr const char* kSystemBus = "unix:path=/run/dbus/system_bus_socket";
constexpr int kCallTimeoutMs = 3000;

}  // namespace

std::unique_ptr<SystemBusConnection> SystemBusConnection::open(const char* service,
                                                               const char* purpose) {
  const char* set = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::string address = set && *set ? set : kSystemBus;
  g_autoptr(GError) error = nullptr;
  GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  if (connection == nullptr) {
    SystemLog::log("no system bus for the %s (%s)", purpose, error->message);
    return nullptr;
  }
  // The connection is ours alone: its end must not end the process.
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  return std::unique_ptr<SystemBusConnection>(
      new SystemBusConnection(connection, service, purpose));
}

SystemBusConnection::SystemBusConnection(GDBusConnection* connection, const char* service,
                                         const char* purpose)
    : connection_(connection), service_(service), purpose_(purpose) {}

SystemBusConnection::~SystemBusConnection() {
  for (const guint id : subscriptions_) g_dbus_connection_signal_unsubscribe(connection_, id);
  g_object_unref(connection_);
}

GVariant* SystemBusConnection::call(const char* path, const char* interface, const char* method,
                                    GVariant* parameters, const char* replyType) {
  g_autoptr(GError) error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      connection_, service_.c_str(), path, interface, method, parameters, G_VARIANT_TYPE(replyType),
      G_DBUS_CALL_FLAGS_NO_AUTO_START, kCallTimeoutMs, nullptr, &error);
  if (reply == nullptr) {
    // Said once for as long as the same thing goes wrong: a machine without the service would
    // otherwise say so at every reading.
    if (lastError_ != error->message) {
      lastError_ = error->message;
      SystemLog::log("%s: %s %s: %s", purpose_.c_str(), path, method, error->message);
    }
  } else {
    lastError_.clear();
  }
  return reply;
}

GVariant* SystemBusConnection::properties(const char* path, const char* interface) {
  GVariant* reply = call(path, "org.freedesktop.DBus.Properties", "GetAll",
                         g_variant_new("(s)", interface), "(a{sv})");
  if (reply == nullptr) return nullptr;
  GVariant* all = g_variant_get_child_value(reply, 0);
  g_variant_unref(reply);
  return all;
}

void SystemBusConnection::subscribe(const char* interface, const char* member, const char* arg0,
                                    const std::shared_ptr<std::function<void()>>& changed) {
  subscribeFrom(service_.c_str(), interface, member, nullptr, arg0, changed);
}

void SystemBusConnection::followOwner(const std::shared_ptr<std::function<void()>>& changed) {
  subscribeFrom("org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
                "/org/freedesktop/DBus", service_.c_str(), changed);
}

void SystemBusConnection::subscribeFrom(const char* sender, const char* interface,
                                        const char* member, const char* path, const char* arg0,
                                        const std::shared_ptr<std::function<void()>>& changed) {
  RunLoop::current();  // signals are delivered on the calling thread's loop
  using Shared = std::shared_ptr<std::function<void()>>;
  subscriptions_.push_back(g_dbus_connection_signal_subscribe(
      connection_, sender, interface, member, path, arg0, G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
         gpointer data) { runGuarded("system bus signal", **static_cast<Shared*>(data)); },
      new Shared(changed), [](gpointer data) { delete static_cast<Shared*>(data); }));
}

}  // namespace vexa
