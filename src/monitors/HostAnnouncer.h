#pragma once

#include <functional>
#include <string>

#include "vexa/messaging/Message.h"
#include "vexa/util/DispatchQueue.h"

namespace vexa {

class XSocketServer;

// What a monitor tells the host application (the connection identified as
// XSocketServer::kHostIdentity), sent one message at a time in the order posted, never on the
// poster's thread.
//
// A host that stops reading holds up this queue only, for as long as the server's send deadline
// lets a send block; whoever posts never waits on the network. Safe from any thread.
class HostAnnouncer {
 public:
  using Send = std::function<void()>;

  HostAnnouncer(XSocketServer& server, std::string label)
      : server_(server), queue_(std::move(label), DispatchQueue::Kind::Serial) {}

  // The send of `message` to the host as connected now; empty when no host is.
  Send prepare(Message message) const;
  // Queues a prepared send behind every one posted before it. Never blocks: call it under the
  // lock whose order of changes the host must hear.
  void post(Send send);

 private:
  XSocketServer& server_;
  DispatchQueue queue_;
};

}  // namespace vexa
