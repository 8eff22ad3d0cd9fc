#include "privileged/linux/DBusHelperServer.h"

#include <gio/gio.h>
#include <glib-unix.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

#include "privileged/HelperService.h"
#include "privileged/linux/GVariantJson.h"
#include "vexa/privileged/HelperProtocol.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

std::string introspectionXml() {
  return std::string("<node><interface name='") + HelperProtocol::kInterface + "'><method name='" +
         HelperProtocol::kMethod +
         "'><arg type='a{sv}' name='request' direction='in'/>"
         "<arg type='a{sv}' name='reply' direction='out'/></method></interface></node>";
}

using Options = DBusHelperServer::Options;

struct Server {
  // Shared with the requests in flight, which may outlive run().
  std::shared_ptr<const Options> options;
  GMainLoop* loop = nullptr;  // owned by run()
  int status = 0;
};

// One method call in flight. It is answered exactly once: by answer(), or with a D-Bus error if
// the work ends without answering, so no caller waits for its timeout.
class PendingCall {
 public:
  // Takes over the reference GDBus gave the method handler.
  explicit PendingCall(GDBusMethodInvocation* invocation) : invocation_(invocation) {}
  ~PendingCall() {
    if (invocation_) {
      g_dbus_method_invocation_return_error_literal(invocation_, G_DBUS_ERROR, G_DBUS_ERROR_FAILED,
                                                    "the request was not answered");
    }
  }
  PendingCall(const PendingCall&) = delete;
  PendingCall& operator=(const PendingCall&) = delete;

  GDBusConnection* connection() const {
    return g_dbus_method_invocation_get_connection(invocation_);
  }
  const char* sender() const { return g_dbus_method_invocation_get_sender(invocation_); }
  GVariant* parameters() const { return g_dbus_method_invocation_get_parameters(invocation_); }
  // Sends the reply; GDBus takes the invocation's reference.
  void answer(const nlohmann::json& reply) {
    g_dbus_method_invocation_return_value(std::exchange(invocation_, nullptr),
                                          g_variant_new("(@a{sv})", dictionaryToVariant(reply)));
  }

 private:
  GDBusMethodInvocation* invocation_;
};

std::optional<uid_t> callerUid(GDBusConnection* connection, const char* sender) {
  g_autoptr(GVariant) answer = g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "GetConnectionUnixUser", g_variant_new("(s)", sender), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
  if (!answer) return std::nullopt;
  guint32 uid = 0;
  g_variant_get(answer, "(u)", &uid);
  return uid;
}

// polkit's answer for this caller, or empty when polkit does not run on the bus.
std::optional<bool> polkitAllows(GDBusConnection* connection, const char* sender,
                                 const char* action) {
  GVariantBuilder subjectDetails;
  g_variant_builder_init(&subjectDetails, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&subjectDetails, "{sv}", "name", g_variant_new_string(sender));
  GVariantBuilder details;
  g_variant_builder_init(&details, G_VARIANT_TYPE("a{ss}"));
  g_autoptr(GError) error = nullptr;
  g_autoptr(GVariant) answer = g_dbus_connection_call_sync(
      connection, "org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
      "org.freedesktop.PolicyKit1.Authority", "CheckAuthorization",
      g_variant_new("((sa{sv})sa{ss}us)", "system-bus-name", &subjectDetails, action, &details,
                    1u /* allow user interaction */, ""),
      G_VARIANT_TYPE("((bba{ss}))"), G_DBUS_CALL_FLAGS_NO_AUTO_START, 5 * 60 * 1000, nullptr,
      &error);
  if (!answer) {
    const bool absent = g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
                        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER);
    if (absent) return std::nullopt;
    return false;
  }
  gboolean authorized = FALSE, challenge = FALSE;
  g_variant_get(answer, "((bb@a{ss}))", &authorized, &challenge, nullptr);
  return authorized == TRUE;
}

bool authorized(const Options& options, GDBusConnection* connection, const char* sender,
                const char* action) {
  const auto uid = callerUid(connection, sender);
  if (!uid) return false;
  if (*uid == 0) return true;
  if (auto polkit = polkitAllows(connection, sender, action)) return *polkit;
  const auto& allowed = options.allowedUids;
  return std::find(allowed.begin(), allowed.end(), *uid) != allowed.end();
}

void onMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                  GVariant*, GDBusMethodInvocation* invocation, gpointer data) {
  std::shared_ptr<const Options> options = static_cast<Server*>(data)->options;
  auto call = std::make_shared<PendingCall>(invocation);
  // A request may run a tool for minutes: it never holds up the others.
  DispatchQueue::global().async([options, call] {
    const char* sender = call->sender() ? call->sender() : "";
    g_autoptr(GVariant) parameters = g_variant_get_child_value(call->parameters(), 0);
    const auto request = variantToDictionary(parameters);
    if (!authorized(*options, call->connection(), sender, HelperService::actionFor(request))) {
      SystemLog::log("helper refused a request from an unauthorized caller (%s)", sender);
      call->answer({{HelperProtocol::kResultKey, false}});
      return;
    }
    call->answer(HelperService::handle(request));
  });
}

gboolean onStopSignal(gpointer data) {
  g_main_loop_quit(static_cast<Server*>(data)->loop);
  return G_SOURCE_CONTINUE;
}

}  // namespace

int DBusHelperServer::run(const Options& options) {
  Server server;
  server.options = std::make_shared<const Options>(options);
  g_autoptr(GError) error = nullptr;
  g_autoptr(GDBusConnection) connection = nullptr;
  if (!options.busAddress.empty()) {
    connection = g_dbus_connection_new_for_address_sync(
        options.busAddress.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
  } else {
    connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
  }
  if (!connection) {
    std::fprintf(stderr, "vexa-helper: cannot connect to the bus: %s\n", error->message);
    return 1;
  }
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  g_autoptr(GDBusNodeInfo) node = g_dbus_node_info_new_for_xml(introspectionXml().c_str(), &error);
  if (!node) {
    std::fprintf(stderr, "vexa-helper: bad interface description: %s\n", error->message);
    return 1;
  }
  static const GDBusInterfaceVTable vtable = {onMethodCall, nullptr, nullptr, {}};
  const guint registration =
      g_dbus_connection_register_object(connection, HelperProtocol::kObjectPath,
                                        node->interfaces[0], &vtable, &server, nullptr, &error);
  if (!registration) {
    std::fprintf(stderr, "vexa-helper: cannot register: %s\n", error->message);
    return 1;
  }
  g_autoptr(GVariant) owned = g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", HelperProtocol::kBusName, 4u /* do not queue */),
      G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  guint32 result = 0;
  if (owned) g_variant_get(owned, "(u)", &result);
  if (result != 1 /* primary owner */) {
    std::fprintf(stderr, "vexa-helper: cannot own %s\n", HelperProtocol::kBusName);
    g_dbus_connection_unregister_object(connection, registration);
    return 1;
  }
  g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
  server.loop = loop;
  const guint onInterrupt = g_unix_signal_add(SIGINT, onStopSignal, &server);
  const guint onTerminate = g_unix_signal_add(SIGTERM, onStopSignal, &server);
  std::printf("vexa-helper ready\n");
  std::fflush(stdout);
  g_main_loop_run(loop);
  g_source_remove(onInterrupt);
  g_source_remove(onTerminate);
  g_dbus_connection_unregister_object(connection, registration);
  return server.status;
}

}  // namespace vexa
