#include "messaging/TcpConnector.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>

#include "messaging/SocketChannel.h"

namespace vexa {

UniqueFd TcpConnector::connect(const std::string& host, uint16_t port) {
  sockaddr_storage address{};
  socklen_t length;
  const std::string target = host.empty() ? "127.0.0.1" : host;
  auto& v4 = reinterpret_cast<sockaddr_in&>(address);
  auto& v6 = reinterpret_cast<sockaddr_in6&>(address);
  if (::inet_pton(AF_INET, target.c_str(), &v4.sin_addr) == 1) {
    v4.sin_family = AF_INET;
    v4.sin_port = htons(port);
    length = sizeof v4;
  } else if (::inet_pton(AF_INET6, target.c_str(), &v6.sin6_addr) == 1) {
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(port);
    length = sizeof v6;
  } else {
    errno = EINVAL;
    return UniqueFd();
  }
  UniqueFd fd(::socket(address.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) return fd;
  int rc;
  do {
    rc = ::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), length);
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) return UniqueFd();
  SocketChannel::setNoDelay(fd.get());
  return fd;
}

}  // namespace vexa
