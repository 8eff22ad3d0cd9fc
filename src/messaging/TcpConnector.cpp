#include "messaging/TcpConnector.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>

#include "messaging/SocketChannel.h"

namespace vexa {

UniqueFd TcpConnector::connect(const std::string& host, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (::inet_pton(AF_INET, host.empty() ? "127.0.0.1" : host.c_str(), &address.sin_addr) != 1) {
    errno = EINVAL;
    return UniqueFd();
  }
  UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) return fd;
  int rc;
  do {
    rc = ::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) return UniqueFd();
  SocketChannel::setNoDelay(fd.get());
  return fd;
}

}  // namespace vexa
