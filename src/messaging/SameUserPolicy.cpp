#include "messaging/SameUserPolicy.h"

#include "vexa/util/SystemLog.h"

namespace vexa {

SameUserPolicy::SameUserPolicy(std::shared_ptr<PeerCredentials> credentials, uint32_t uid,
                               bool allowRemote)
    : credentials_(std::move(credentials)), uid_(uid), allowRemote_(allowRemote) {}

std::optional<std::string> SameUserPolicy::refusal(int connectedFD) {
  auto tuple = SocketTuple::of(connectedFD);
  if (!tuple) {
    // The peer left before it could be looked at (or this is no TCP connection).
    logRefusal("unreadable", "refused a connection whose ends cannot be read");
    return std::string(kUnknownOwner);
  }
  return refusal(*tuple);
}

std::optional<std::string> SameUserPolicy::refusal(const SocketTuple& tuple) {
  const std::string address = tuple.remoteAddressText();
  if (!tuple.remoteIsLoopback()) {
    if (allowRemote_) return std::nullopt;
    logRefusal("remote " + address, "refused a connection from another machine (" + address +
                                        "); --allow-remote admits those");
    return std::string(kRemote);
  }
  const auto owner = credentials_->ownerOfPeer(tuple);
  if (const auto* error = std::get_if<std::error_code>(&owner)) {
    logRefusal("unknown " + error->message(), "refused a connection from " + address +
                                                  ": its owner cannot be found (" +
                                                  error->message() + ")");
    return std::string(kUnknownOwner);
  }
  const uint32_t uid = std::get<uint32_t>(owner);
  if (uid == uid_) return std::nullopt;
  logRefusal("uid " + std::to_string(uid),
             "refused a connection from " + address + " owned by uid " + std::to_string(uid) +
                 " (this agent serves uid " + std::to_string(uid_) + " only)");
  return std::string(kOtherUser);
}

// One line per distinct refusal, and a bounded number of them: a flood of connections from
// another account must not flood the log.
void SameUserPolicy::logRefusal(const std::string& key, const std::string& text) {
  std::lock_guard lock(mutex_);
  if (logged_.count(key)) return;
  if (logged_.size() >= kLoggedRefusals) {
    if (!saidEnough_) SystemLog::log("more connections refused; no longer logging each kind");
    saidEnough_ = true;
    return;
  }
  logged_.insert(key);
  SystemLog::log("%s", text.c_str());
}

}  // namespace vexa
