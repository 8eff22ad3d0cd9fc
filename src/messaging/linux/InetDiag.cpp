#include "messaging/linux/InetDiag.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace vexa {

namespace {

// The largest errno the kernel reports (its MAX_ERRNO).
constexpr int kLargestErrno = 4095;

struct Request {
  nlmsghdr header;
  inet_diag_req_v2 body;
};

int familyOf(const SocketTuple& tuple) {
  return tuple.family == SocketTuple::Family::IPv4 ? AF_INET : AF_INET6;
}

size_t addressBytes(const SocketTuple& tuple) {
  return tuple.family == SocketTuple::Family::IPv4 ? 4 : 16;
}

// The peer's socket: its source is our remote end, its destination our local end.
inet_diag_sockid peerId(const SocketTuple& tuple) {
  inet_diag_sockid id{};
  id.idiag_sport = htons(tuple.remotePort);
  id.idiag_dport = htons(tuple.localPort);
  std::memcpy(id.idiag_src, tuple.remoteAddress.data(), addressBytes(tuple));
  std::memcpy(id.idiag_dst, tuple.localAddress.data(), addressBytes(tuple));
  id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
  id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
  return id;
}

}  // namespace

std::vector<uint8_t> InetDiag::peerRequest(const SocketTuple& tuple, uint32_t sequence) {
  Request request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.header.nlmsg_seq = sequence;
  request.body.sdiag_family = static_cast<uint8_t>(familyOf(tuple));
  request.body.sdiag_protocol = IPPROTO_TCP;
  request.body.idiag_states = ~0u;
  request.body.id = peerId(tuple);
  const auto* bytes = reinterpret_cast<const uint8_t*>(&request);
  return std::vector<uint8_t>(bytes, bytes + sizeof request);
}

std::variant<uint32_t, std::error_code> InetDiag::parsePeerReply(std::span<const uint8_t> reply,
                                                                 const SocketTuple& tuple,
                                                                 uint32_t sequence) {
  const std::error_code malformed(EBADMSG, std::generic_category());
  const inet_diag_sockid wanted = peerId(tuple);
  size_t at = 0;
  while (reply.size() - at >= sizeof(nlmsghdr)) {
    nlmsghdr header;
    std::memcpy(&header, reply.data() + at, sizeof header);
    if (header.nlmsg_len < sizeof header || header.nlmsg_len > reply.size() - at) return malformed;
    const uint8_t* payload = reply.data() + at + NLMSG_HDRLEN;
    const size_t payloadSize = header.nlmsg_len - std::min<size_t>(header.nlmsg_len, NLMSG_HDRLEN);
    at += NLMSG_ALIGN(header.nlmsg_len);
    if (at > reply.size()) at = reply.size();
    if (header.nlmsg_seq != sequence) continue;  // a late answer to an earlier request
    if (header.nlmsg_type == NLMSG_ERROR) {
      nlmsgerr error;
      if (payloadSize < sizeof error) return malformed;
      std::memcpy(&error, payload, sizeof error);
      // An acknowledgement (0) carries no owner; the kernel's errors are negative errno values,
      // so anything else (a positive number, INT_MIN, which cannot even be negated) is not one.
      if (error.error >= 0 || error.error < -kLargestErrno) return malformed;
      return std::error_code(-error.error, std::generic_category());
    }
    if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY) continue;
    inet_diag_msg message;
    if (payloadSize < sizeof message) return malformed;
    std::memcpy(&message, payload, sizeof message);
    if (message.idiag_family != familyOf(tuple) || message.id.idiag_sport != wanted.idiag_sport ||
        message.id.idiag_dport != wanted.idiag_dport ||
        std::memcmp(message.id.idiag_src, wanted.idiag_src, addressBytes(tuple)) != 0 ||
        std::memcmp(message.id.idiag_dst, wanted.idiag_dst, addressBytes(tuple)) != 0) {
      return malformed;
    }
    return message.idiag_uid;
  }
  return malformed;
}

}  // namespace vexa
