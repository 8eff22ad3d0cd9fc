// Network changes from the kernel's routing socket (link, address and route announcements of
// the process's network namespace) and from the network manager while it runs.
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "status/NetworkChanges.h"
#include "status/NetworkDaemon.h"
#include "util/FdWatch.h"
#include "util/UniqueFd.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

bool isConfigurationChange(uint16_t type) {
  switch (type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
    case RTM_NEWADDR:
    case RTM_DELADDR:
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
      return true;
    default:
      return false;
  }
}

// Whether one datagram of the socket holds a change. Each message's length is checked against
// what is left, so a truncated datagram ends the walk instead of reading past it.
bool holdsChange(const char* data, size_t length) {
  size_t offset = 0;
  while (offset + sizeof(nlmsghdr) <= length) {
    nlmsghdr header{};
    std::memcpy(&header, data + offset, sizeof header);
    if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > length - offset) break;
    if (isConfigurationChange(header.nlmsg_type)) return true;
    offset += NLMSG_ALIGN(header.nlmsg_len);
  }
  return false;
}

// Reads every datagram waiting on the socket; true when one of them told of a change or some
// were lost (the socket's buffer overflowed: the lost ones may have been changes).
bool drain(int socket) {
  alignas(nlmsghdr) char buffer[16384];
  bool changed = false;
  for (;;) {
    const ssize_t got = ::recv(socket, buffer, sizeof buffer, MSG_DONTWAIT);
    if (got > 0) {
      changed = holdsChange(buffer, static_cast<size_t>(got)) || changed;
    } else if (got < 0 && errno == EINTR) {
      continue;
    } else if (got < 0 && errno == ENOBUFS) {
      changed = true;
    } else {
      return changed;  // EAGAIN: drained; anything else is reported again by the next wake
    }
  }
}

class RtnetlinkChanges final : public NetworkChanges {
 public:
  bool start(std::function<void()> changed) override {
    // The manager's view changes without the kernel's at times (a connection renamed, name
    // servers set), and the kernel's without the manager's (links it does not manage).
    manager_ = NetworkDaemon::system();
    const bool managerHeard = manager_ && manager_->follow(changed);
    return listenToKernel(std::move(changed)) || managerHeard;
  }

 private:
  bool listenToKernel(std::function<void()> changed) {
    auto socket = std::make_shared<UniqueFd>(
        ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    if (!*socket) return fail("cannot open a routing socket");
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE |
                        RTMGRP_IPV6_ROUTE;
    if (::bind(socket->get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      return fail("cannot join the routing socket's groups");
    }
    const int fd = socket->get();
    watch_ = FdWatch::start(RunLoop::current(), fd,
                            [socket = std::move(socket), changed = std::move(changed)] {
                              if (drain(socket->get())) changed();
                            });
    return true;
  }

  static bool fail(const char* what) {
    SystemLog::log("%s (%s): the kernel's network changes go unheard", what, std::strerror(errno));
    return false;
  }

  std::unique_ptr<FdWatch> watch_;
  std::unique_ptr<NetworkDaemon> manager_;
};

}  // namespace

std::unique_ptr<NetworkChanges> NetworkChanges::system() {
  return std::make_unique<RtnetlinkChanges>();
}

}  // namespace vexa
