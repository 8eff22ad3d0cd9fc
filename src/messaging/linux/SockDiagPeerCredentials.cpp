#include "messaging/linux/SockDiagPeerCredentials.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

#include "messaging/SameUserPolicy.h"
#include "messaging/linux/InetDiag.h"
#include "util/UniqueFd.h"

namespace vexa {

namespace {

std::error_code lastError() { return {errno, std::generic_category()}; }

}  // namespace

std::variant<uint32_t, std::error_code> SockDiagPeerCredentials::ownerOfPeer(
    const SocketTuple& tuple) {
  UniqueFd netlink(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (!netlink) return lastError();
  const timeval limit{1, 0};
  ::setsockopt(netlink.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  const uint32_t sequence = sequence_.fetch_add(1);
  const std::vector<uint8_t> request = InetDiag::peerRequest(tuple, sequence);
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  if (::sendto(netlink.get(), request.data(), request.size(), 0,
               reinterpret_cast<sockaddr*>(&kernel), sizeof kernel) < 0) {
    return lastError();
  }
  alignas(nlmsghdr) uint8_t reply[8192];
  ssize_t got;
  do {
    got = ::recv(netlink.get(), reply, sizeof reply, 0);
  } while (got < 0 && errno == EINTR);
  if (got < 0) return lastError();
  return InetDiag::parsePeerReply(std::span<const uint8_t>(reply, static_cast<size_t>(got)), tuple,
                                  sequence);
}

std::shared_ptr<PeerPolicy> PeerPolicy::sameUser(bool allowRemote) {
  return std::make_shared<SameUserPolicy>(std::make_shared<SockDiagPeerCredentials>(),
                                          static_cast<uint32_t>(::geteuid()), allowRemote);
}

}  // namespace vexa
