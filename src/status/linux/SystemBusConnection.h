#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vexa {

// A connection of our own to the system bus ($DBUS_SYSTEM_BUS_ADDRESS when set) for talking to
// one service: never the process's shared connection, so neither the host's use of that nor a
// bus that comes and goes gets in the way. Calls never start the service and time out after a
// few seconds. Used on one thread.
class SystemBusConnection {
 public:
  // Null (after logging why, for `purpose`) when the bus cannot be reached.
  static std::unique_ptr<SystemBusConnection> open(const char* service, const char* purpose);
  ~SystemBusConnection();
  SystemBusConnection(const SystemBusConnection&) = delete;
  SystemBusConnection& operator=(const SystemBusConnection&) = delete;

  // The reply, of `replyType`, or null. What went wrong is logged once for as long as it keeps
  // going wrong the same way.
  GVariant* call(const char* path, const char* interface, const char* method, GVariant* parameters,
                 const char* replyType);
  // All properties of one of the service's objects (a{sv}), or null.
  GVariant* properties(const char* path, const char* interface);
  // Calls `changed` on the calling thread's run loop for the service's signals of that member
  // (any interface when null), until destroyed.
  void subscribe(const char* interface, const char* member, const char* arg0,
                 const std::shared_ptr<std::function<void()>>& changed);
  // Calls `changed` when the service's name changes owner (it starts or stops).
  void followOwner(const std::shared_ptr<std::function<void()>>& changed);

 private:
  SystemBusConnection(GDBusConnection* connection, const char* service, const char* purpose);
  void subscribeFrom(const char* sender, const char* interface, const char* member,
                     const char* path, const char* arg0,
                     const std::shared_ptr<std::function<void()>>& changed);

  GDBusConnection* connection_;
  std::string service_;
  std::string purpose_;
  std::vector<guint> subscriptions_;
  std::string lastError_;
};

}  // namespace vexa
