#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "messaging/PeerCredentials.h"
#include "vexa/messaging/PeerPolicy.h"

namespace vexa {

// The agent's policy: a connection stays when its peer is a process of `uid` on this machine
// (or, with `allowRemote`, on another machine). Safe from any thread.
class SameUserPolicy final : public PeerPolicy {
 public:
  static constexpr const char* kOtherUser =
      "The connection belongs to another user and can not be added!";
  static constexpr const char* kRemote =
      "Connections from other machines are not accepted and can not be added!";
  static constexpr const char* kUnknownOwner =
      "The owner of the connection can not be verified and it can not be added!";
  // How many distinct refusals are logged before the rest are only counted.
  static constexpr size_t kLoggedRefusals = 64;

  SameUserPolicy(std::shared_ptr<PeerCredentials> credentials, uint32_t uid, bool allowRemote);

  std::optional<std::string> refusal(int connectedFD) override;
  // The same decision for a connection's two ends.
  std::optional<std::string> refusal(const SocketTuple& tuple);

 private:
  void logRefusal(const std::string& key, const std::string& text);

  const std::shared_ptr<PeerCredentials> credentials_;
  const uint32_t uid_;
  const bool allowRemote_;
  std::mutex mutex_;
  std::set<std::string> logged_;  // guarded by mutex_
  bool saidEnough_ = false;       // guarded by mutex_
};

}  // namespace vexa
