#pragma once

#include <memory>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"

namespace vexa {

class XConnectClient;

// Receives what the host application's commands carry for the installed-application monitor.
// Registered on the server by whoever owns that monitor (the agent wires it at start-up).
// Called on the connection's receiving thread.
class VEXA_EXPORT XCommandHandler {
 public:
  virtual ~XCommandHandler() = default;
  // "InstallPaths" of the host's "ConnectCommand".
  virtual void setInstallPaths(const nlohmann::json& paths) { (void)paths; }
  // "Path" of "ForceRemoveSuccessCommand": a non-empty list.
  virtual void clearForceRemovedApp(const nlohmann::json& paths) { (void)paths; }
  // The host application identified itself on this connection (after its install paths were
  // passed on): the moment to send it what waited for it.
  virtual void hostConnected(const std::shared_ptr<XConnectClient>& connection) {
    (void)connection;
  }
  // Sends the host, on this connection, the report of the applications removed meanwhile.
  virtual void sendRemoveAppToClient(const std::shared_ptr<XConnectClient>& connection) {
    (void)connection;
  }
};

}  // namespace vexa
