#pragma once

#include <gio/gio.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "vexa/util/RunLoop.h"

namespace vexa::test {

// A service of python-dbusmock's templates on a bus ("upower", "networkmanager"), with a
// connection of the test's own to drive it through the mock's control interface. The service
// is started as a system service at `address`; callers set DBUS_SYSTEM_BUS_ADDRESS for the code
// under test themselves.
class MockService {
 public:
  MockService(const std::string& address, const std::string& templateName, std::string name)
      : name_(std::move(name)) {
    connection_ = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    if (connection_ == nullptr) return;
    g_dbus_connection_set_exit_on_close(connection_, FALSE);
    std::string previous = getenvOr("DBUS_SYSTEM_BUS_ADDRESS");
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    process_ = std::make_unique<ChildProcess>(std::vector<std::string>{
        "/usr/bin/python3", "-m", "dbusmock", "--system", "--template", templateName});
    if (previous.empty()) {
      ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    } else {
      ::setenv("DBUS_SYSTEM_BUS_ADDRESS", previous.c_str(), 1);
    }
  }
  ~MockService() {
    process_.reset();
    if (connection_ != nullptr) g_object_unref(connection_);
  }
  MockService(const MockService&) = delete;
  MockService& operator=(const MockService&) = delete;

  // Waits until the service owns its name; false at the deadline or when it could not start.
  bool waitUntilServing(std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    if (connection_ == nullptr || !process_) return false;
    bool owned = false;
    const guint watch = g_bus_watch_name_on_connection_with_closures(
        connection_, name_.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE,
        g_cclosure_new(G_CALLBACK(+[](GDBusConnection*, const gchar*, const gchar*, gpointer data) {
                         *static_cast<bool*>(data) = true;
                       }),
                       &owned, nullptr),
        nullptr);
    RunLoop::current().runUntil([&] { return owned || !process_->running(); }, timeout);
    g_bus_unwatch_name(watch);
    return owned;
  }

  // Calls a method of the service; the reply, or null (with the error in `error`).
  GVariant* call(const std::string& path, const std::string& interface, const std::string& method,
                 GVariant* parameters, std::string* error = nullptr) {
    GError* failure = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        connection_, name_.c_str(), path.c_str(), interface.c_str(), method.c_str(), parameters,
        nullptr, G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &failure);
    if (failure != nullptr) {
      if (error != nullptr) *error = failure->message;
      g_error_free(failure);
    }
    return reply;
  }
  // A call whose reply is not needed; true when it was answered.
  bool tell(const std::string& path, const std::string& method, GVariant* parameters,
            std::string* error = nullptr) {
    GVariant* reply = call(path, "org.freedesktop.DBus.Mock", method, parameters, error);
    if (reply == nullptr) return false;
    g_variant_unref(reply);
    return true;
  }

 private:
  static std::string getenvOr(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
  }

  std::string name_;
  GDBusConnection* connection_ = nullptr;
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace vexa::test
