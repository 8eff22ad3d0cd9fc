// A notification server for tests: owns org.freedesktop.Notifications on the bus given, answers
// with the capabilities given, prints every call as one JSON line, and sends the signals it is
// told to on standard input ("invoke ID KEY", "closed ID REASON"). "hold" keeps the answers to
// later Notify calls until "release" sends them.
//
//   fake-notification-server ADDRESS CAPABILITY,... [--never-answer]
#include <gio/gio.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* kName = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";
constexpr const char* kIntrospection =
    "<node><interface name='org.freedesktop.Notifications'>"
    "<method name='GetCapabilities'><arg type='as' direction='out'/></method>"
    "<method name='Notify'><arg type='s'/><arg type='u'/><arg type='s'/><arg type='s'/>"
    "<arg type='s'/><arg type='as'/><arg type='a{sv}'/><arg type='i'/>"
    "<arg type='u' direction='out'/></method>"
    "<method name='CloseNotification'><arg type='u'/></method>"
    "<method name='GetServerInformation'><arg type='s' direction='out'/>"
    "<arg type='s' direction='out'/><arg type='s' direction='out'/>"
    "<arg type='s' direction='out'/></method>"
    "<signal name='NotificationClosed'><arg type='u'/><arg type='u'/></signal>"
    "<signal name='ActionInvoked'><arg type='u'/><arg type='s'/></signal>"
    "</interface></node>";

std::vector<std::string> capabilities;
bool neverAnswer = false;
bool holding = false;
guint32 lastId = 0;
GDBusConnection* connection = nullptr;
std::vector<GDBusMethodInvocation*> unanswered;
std::vector<std::pair<GDBusMethodInvocation*, guint32>> held;

void print(const nlohmann::json& line) {
  std::cout << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
}

void emit(const char* signal, GVariant* parameters) {
  g_dbus_connection_emit_signal(connection, nullptr, kPath, kInterface, signal, parameters,
                                nullptr);
  g_dbus_connection_flush_sync(connection, nullptr, nullptr);
}

void notify(GVariant* parameters, GDBusMethodInvocation* invocation) {
  const gchar *app = nullptr, *icon = nullptr, *summary = nullptr, *body = nullptr;
  guint32 replaces = 0;
  gint32 timeout = 0;
  g_autoptr(GVariantIter) actions = nullptr;
  g_autoptr(GVariant) hints = nullptr;
  g_variant_get(parameters, "(&su&s&s&sas@a{sv}i)", &app, &replaces, &icon, &summary, &body,
                &actions, &hints, &timeout);
  nlohmann::json line = {{"call", "Notify"},   {"app", app},   {"replaces", replaces},
                         {"summary", summary}, {"body", body}, {"timeout", timeout}};
  line["actions"] = nlohmann::json::array();
  const gchar* action = nullptr;
  while (g_variant_iter_next(actions, "&s", &action)) line["actions"].push_back(action);
  const gchar* entry = nullptr;
  if (g_variant_lookup(hints, "desktop-entry", "&s", &entry)) line["desktop-entry"] = entry;
  gint32 width = 0, height = 0, stride = 0, bits = 0, channels = 0;
  gboolean alpha = FALSE;
  g_autoptr(GVariant) bytes = nullptr;
  if (g_variant_lookup(hints, "image-data", "(iiibii@ay)", &width, &height, &stride, &alpha, &bits,
                       &channels, &bytes)) {
    line["image"] = {width, height, stride, g_variant_get_size(bytes)};
  }
  print(line);
  if (neverAnswer) {
    unanswered.push_back(invocation);  // kept, so that the caller waits for its time limit
    return;
  }
  const guint32 id = replaces != 0 ? replaces : ++lastId;
  if (holding) {
    held.emplace_back(invocation, id);
    return;
  }
  g_dbus_method_invocation_return_value(invocation, g_variant_new("(u)", id));
}

void call(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* method,
          GVariant* parameters, GDBusMethodInvocation* invocation, gpointer) {
  if (std::strcmp(method, "GetCapabilities") == 0) {
    print({{"call", "GetCapabilities"}});
    GVariantBuilder names;
    g_variant_builder_init(&names, G_VARIANT_TYPE("as"));
    for (const auto& name : capabilities) g_variant_builder_add(&names, "s", name.c_str());
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(as)", &names));
  } else if (std::strcmp(method, "Notify") == 0) {
    notify(parameters, invocation);
  } else if (std::strcmp(method, "CloseNotification") == 0) {
    guint32 id = 0;
    g_variant_get(parameters, "(u)", &id);
    print({{"call", "CloseNotification"}, {"id", id}});
    g_dbus_method_invocation_return_value(invocation, nullptr);
    emit("NotificationClosed", g_variant_new("(uu)", id, 3));
  } else {
    g_dbus_method_invocation_return_value(invocation,
                                          g_variant_new("(ssss)", "fake", "vexa", "1", "1.2"));
  }
}

gboolean command(GIOChannel* channel, GIOCondition, gpointer loop) {
  g_autofree gchar* text = nullptr;
  if (g_io_channel_read_line(channel, &text, nullptr, nullptr, nullptr) != G_IO_STATUS_NORMAL) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
  }
  std::istringstream words(text);
  std::string verb;
  guint32 id = 0;
  words >> verb >> id;
  if (verb == "invoke") {
    std::string key;
    words >> key;
    emit("ActionInvoked", g_variant_new("(us)", id, key.c_str()));
  } else if (verb == "closed") {
    guint32 reason = 0;
    words >> reason;
    emit("NotificationClosed", g_variant_new("(uu)", id, reason));
  } else if (verb == "hold") {
    holding = true;
  } else if (verb == "release") {
    holding = false;
    for (const auto& [invocation, answer] : held) {
      g_dbus_method_invocation_return_value(invocation, g_variant_new("(u)", answer));
    }
    held.clear();
    g_dbus_connection_flush_sync(connection, nullptr, nullptr);
  }
  print({{"done", verb}});
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr,
                 "usage: fake-notification-server ADDRESS CAPABILITY,... [--never-answer]\n");
    return 2;
  }
  std::istringstream list(argv[2]);
  for (std::string name; std::getline(list, name, ',');) {
    if (!name.empty()) capabilities.push_back(name);
  }
  neverAnswer = argc > 3 && std::strcmp(argv[3], "--never-answer") == 0;
  g_autoptr(GError) error = nullptr;
  connection = g_dbus_connection_new_for_address_sync(
      argv[1],
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  if (!connection) {
    std::fprintf(stderr, "%s\n", error->message);
    return 1;
  }
  g_autoptr(GDBusNodeInfo) node = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
  static const GDBusInterfaceVTable table = {call, nullptr, nullptr, {}};
  g_dbus_connection_register_object(connection, kPath, node->interfaces[0], &table, nullptr,
                                    nullptr, nullptr);
  g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", kName, 4 /* do not queue */), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  if (!reply) {
    std::fprintf(stderr, "%s\n", error->message);
    return 1;
  }
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  GIOChannel* input = g_io_channel_unix_new(0);
  g_io_add_watch(input, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), command, loop);
  print({{"ready", true}});
  g_main_loop_run(loop);
  return 0;
}
