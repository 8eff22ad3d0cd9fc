#pragma once

#include <memory>
#include <optional>
#include <string>

#include "vexa/Export.h"

namespace vexa {

// Decides whether an accepted connection may stay. The server asks it on its accept thread for
// every new connection, before the connection takes a slot or hears anything; a refused peer
// is told "ServerRefuseCommand" with the answer as its "Error" text and closed. A server has
// no policy unless one is set (XSocketServer::setPeerPolicy).
class VEXA_EXPORT PeerPolicy {
 public:
  virtual ~PeerPolicy() = default;
  // Empty to admit the connection; otherwise why it is refused. Must not block for long: the
  // next connection waits.
  virtual std::optional<std::string> refusal(int connectedFD) = 0;

  // Admits only connections from processes of this process's effective user on this machine,
  // as the kernel reports the owner of the peer's socket; with `allowRemote`, connections from
  // other machines too (their user cannot be known). A connection whose owner cannot be
  // found is refused. Refusals are logged, once per peer address and reason.
  static std::shared_ptr<PeerPolicy> sameUser(bool allowRemote = false);
};

}  // namespace vexa
