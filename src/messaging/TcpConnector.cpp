#include "messaging/TcpConnector.h"

#include <sys/socket.h>

#include <cerrno>

#include "messaging/SocketAddress.h"
#include "messaging/SocketChannel.h"

namespace vexa {

UniqueFd TcpConnector::connect(const std::string& host, uint16_t port) {
  const auto address = SocketAddress::parse(host.empty() ? "127.0.0.1" : host, port);
  if (!address) {
    errno = EINVAL;
    return UniqueFd();
  }
  UniqueFd fd(::socket(address->family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) return fd;
  int rc;
  do {
    rc = ::connect(fd.get(), address->get(), address->length);
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) return UniqueFd();
  SocketChannel::setNoDelay(fd.get());
  return fd;
}

}  // namespace vexa
