// A stand-in for polkit on a private bus, for the helper's tests. Owns
// "org.freedesktop.PolicyKit1", answers every CheckAuthorization with the verdict it was started
// with, and prints "check ACTION SUBJECT-KIND" for each, so a test can wait for the question.
// "deny:ACTION" denies that action and allows the others.
//   fake-polkit BUS-ADDRESS allow|deny|deny:ACTION
#include <gio/gio.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

std::string verdictText;

constexpr const char* kIntrospection =
    "<node><interface name='org.freedesktop.PolicyKit1.Authority'>"
    "<method name='CheckAuthorization'>"
    "<arg type='(sa{sv})' name='subject' direction='in'/>"
    "<arg type='s' name='action_id' direction='in'/>"
    "<arg type='a{ss}' name='details' direction='in'/>"
    "<arg type='u' name='flags' direction='in'/>"
    "<arg type='s' name='cancellation_id' direction='in'/>"
    "<arg type='(bba{ss})' name='result' direction='out'/>"
    "</method></interface></node>";

void onCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
            GVariant* parameters, GDBusMethodInvocation* invocation, gpointer data) {
  const gchar* kind = nullptr;
  const gchar* action = nullptr;
  g_variant_get(parameters, "((&s@a{sv})&s@a{ss}u&s)", &kind, nullptr, &action, nullptr, nullptr,
                nullptr);
  std::printf("check %s %s\n", action, kind);
  std::fflush(stdout);
  (void)data;
  const gboolean verdict = verdictText == "allow" ||
                           (verdictText.rfind("deny:", 0) == 0 && verdictText.substr(5) != action);
  g_dbus_method_invocation_return_value(
      invocation, g_variant_new("((bb@a{ss}))", verdict, FALSE,
                                g_variant_new_array(G_VARIANT_TYPE("{ss}"), nullptr, 0)));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 || (std::strcmp(argv[2], "allow") != 0 && std::strcmp(argv[2], "deny") != 0 &&
                    std::strncmp(argv[2], "deny:", 5) != 0)) {
    std::fprintf(stderr, "usage: fake-polkit BUS-ADDRESS allow|deny|deny:ACTION\n");
    return 2;
  }
  verdictText = argv[2];
  g_autoptr(GError) error = nullptr;
  g_autoptr(GDBusConnection) connection = g_dbus_connection_new_for_address_sync(
      argv[1],
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  if (!connection) {
    std::fprintf(stderr, "fake-polkit: %s\n", error->message);
    return 1;
  }
  g_autoptr(GDBusNodeInfo) node = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
  static const GDBusInterfaceVTable vtable = {onCall, nullptr, nullptr, {}};
  if (!g_dbus_connection_register_object(connection, "/org/freedesktop/PolicyKit1/Authority",
                                         node->interfaces[0], &vtable, nullptr, nullptr, &error)) {
    std::fprintf(stderr, "fake-polkit: %s\n", error->message);
    return 1;
  }
  g_autoptr(GVariant) owned = g_dbus_connection_call_sync(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", "org.freedesktop.PolicyKit1", 4u /* do not queue */),
      G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  guint32 result = 0;
  if (owned) g_variant_get(owned, "(u)", &result);
  if (result != 1 /* primary owner */) {
    std::fprintf(stderr, "fake-polkit: cannot own org.freedesktop.PolicyKit1\n");
    return 1;
  }
  std::printf("fake-polkit ready\n");
  std::fflush(stdout);
  g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
  g_main_loop_run(loop);  // until the test kills it
  return 0;
}
