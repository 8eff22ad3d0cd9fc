#include "monitors/HostAnnouncer.h"

#include "vexa/messaging/XConnectClient.h"
#include "vexa/messaging/XSocketServer.h"

namespace vexa {

HostAnnouncer::Send HostAnnouncer::prepare(Message message) const {
  auto host = server_.getConnetClientByIdentity(XSocketServer::kHostIdentity);
  if (!host) return {};
  // A failed send is dropped: the connection is gone, or closed for missing its deadline.
  return [host = std::move(host), message = std::move(message)] { host->sendData(message); };
}

void HostAnnouncer::post(Send send) {
  if (send) queue_.async(std::move(send));
}

}  // namespace vexa
