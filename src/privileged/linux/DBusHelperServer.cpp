#include "privileged/linux/DBusHelperServer.h"

#include <gio/gio.h>
#include <glib-unix.h>

#include <algorithm>
#include <cstdio>

#include "privileged/HelperService.h"
#include "privileged/linux/GVariantJson.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

constexpr const char* kName = "com.tarnwick.PrivilegesHelper";
constexpr const char* kPath = "/com/tarnwick/PrivilegesHelper";
constexpr const char* kAction = "com.tarnwick.PrivilegesHelper.request";
constexpr const char* kIntrospection =
    "<node><interface name='com.tarnwick.PrivilegesHelper'>"
    "<method name='Request'><arg type='a{sv}' name='request' direction='in'/>"
    "<arg type='a{sv}' name='reply' direction='out'/></method>"
    "</interface></node>";

struct Server {
  DBusHelperServer::Options options;
  GMainLoop* loop = nullptr;
  int status = 0;
};

std::optional<uid_t> callerUid(GDBusConnection* connection, const char* sender) {
  GError* error = nullptr;
  GVariant* answer = g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "GetConnectionUnixUser", g_variant_new("(s)", sender), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &error);
  if (!answer) {
    g_clear_error(&error);
    return std::nullopt;
  }
  guint32 uid = 0;
  g_variant_get(answer, "(u)", &uid);
  g_variant_unref(answer);
  return uid;
}

// polkit's answer for this caller, or empty when polkit does not run on the bus.
std::optional<bool> polkitAllows(GDBusConnection* connection, const char* sender) {
  GError* error = nullptr;
  GVariantBuilder subjectDetails;
  g_variant_builder_init(&subjectDetails, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&subjectDetails, "{sv}", "name", g_variant_new_string(sender));
  GVariantBuilder details;
  g_variant_builder_init(&details, G_VARIANT_TYPE("a{ss}"));
  GVariant* answer = g_dbus_connection_call_sync(
      connection, "org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
      "org.freedesktop.PolicyKit1.Authority", "CheckAuthorization",
      g_variant_new("((sa{sv})sa{ss}us)", "system-bus-name", &subjectDetails, kAction, &details,
                    1u /* allow user interaction */, ""),
      G_VARIANT_TYPE("((bba{ss}))"), G_DBUS_CALL_FLAGS_NO_AUTO_START, 5 * 60 * 1000, nullptr,
      &error);
  if (!answer) {
    const bool absent = g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
                        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER);
    g_clear_error(&error);
    if (absent) return std::nullopt;
    return false;
  }
  gboolean authorized = FALSE, challenge = FALSE;
  g_variant_get(answer, "((bb@a{ss}))", &authorized, &challenge, nullptr);
  g_variant_unref(answer);
  return authorized == TRUE;
}

bool authorized(const Server& server, GDBusConnection* connection, const char* sender) {
  const auto uid = callerUid(connection, sender);
  if (!uid) return false;
  if (*uid == 0) return true;
  if (auto polkit = polkitAllows(connection, sender)) return *polkit;
  const auto& allowed = server.options.allowedUids;
  return std::find(allowed.begin(), allowed.end(), *uid) != allowed.end();
}

void onMethodCall(GDBusConnection* connection, const gchar* sender, const gchar*, const gchar*,
                  const gchar*, GVariant* parameters, GDBusMethodInvocation* invocation,
                  gpointer data) {
  auto* server = static_cast<Server*>(data);
  GVariant* request = g_variant_get_child_value(parameters, 0);
  g_object_ref(invocation);
  g_object_ref(connection);
  const std::string caller = sender ? sender : "";
  // A request may run a tool for minutes: it never holds up the others.
  DispatchQueue::global().async([server, connection, invocation, request, caller] {
    nlohmann::json answer = {{"result", false}};
    if (authorized(*server, connection, caller.c_str())) {
      answer = HelperService::handle(variantToDictionary(request));
    } else {
      SystemLog::log("helper refused a request from an unauthorized caller (%s)", caller.c_str());
    }
    g_dbus_method_invocation_return_value(invocation,
                                          g_variant_new("(@a{sv})", dictionaryToVariant(answer)));
    g_variant_unref(request);
    g_object_unref(invocation);
    g_object_unref(connection);
  });
}

gboolean onStopSignal(gpointer data) {
  g_main_loop_quit(static_cast<Server*>(data)->loop);
  return G_SOURCE_REMOVE;
}

}  // namespace

int DBusHelperServer::run(const Options& options) {
  Server server;
  server.options = options;
  GError* error = nullptr;
  GDBusConnection* connection = nullptr;
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
    g_clear_error(&error);
    return 1;
  }
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
  static const GDBusInterfaceVTable vtable = {onMethodCall, nullptr, nullptr, {}};
  const guint registration = g_dbus_connection_register_object(
      connection, kPath, node->interfaces[0], &vtable, &server, nullptr, &error);
  if (!registration) {
    std::fprintf(stderr, "vexa-helper: cannot register: %s\n", error->message);
    g_clear_error(&error);
    return 1;
  }
  GVariant* owned = g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", kName, 4u /* do not queue */), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  guint32 result = 0;
  if (owned) {
    g_variant_get(owned, "(u)", &result);
    g_variant_unref(owned);
  }
  if (result != 1 /* primary owner */) {
    std::fprintf(stderr, "vexa-helper: cannot own %s\n", kName);
    g_clear_error(&error);
    return 1;
  }
  server.loop = g_main_loop_new(nullptr, FALSE);
  g_unix_signal_add(SIGINT, onStopSignal, &server);
  g_unix_signal_add(SIGTERM, onStopSignal, &server);
  std::printf("vexa-helper ready\n");
  std::fflush(stdout);
  g_main_loop_run(server.loop);
  g_dbus_connection_unregister_object(connection, registration);
  g_dbus_node_info_unref(node);
  g_main_loop_unref(server.loop);
  g_object_unref(connection);
  return server.status;
}

}  // namespace vexa
