#include "messaging/SocketChannel.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>

namespace vexa {

namespace {

ByteChannel::Status statusOfErrno() {
  switch (errno) {
    case EINTR:
    case EAGAIN:
    case ENOBUFS:
      return ByteChannel::Status::Retry;
    case EPIPE:
    case ECONNRESET:
    case ENOTCONN:
    case ESHUTDOWN:
      return ByteChannel::Status::Closed;
    default:
      return ByteChannel::Status::Failed;
  }
}

}  // namespace

ByteChannel::Result SocketChannel::send(const uint8_t* data, size_t size) {
  const ssize_t n = ::send(fd_, data, size, MSG_NOSIGNAL);
  if (n >= 0) return {Status::Ok, static_cast<size_t>(n)};
  return {statusOfErrno(), 0};
}

ByteChannel::Result SocketChannel::receive(uint8_t* data, size_t size, bool all) {
  const ssize_t n = ::recv(fd_, data, size, all ? MSG_WAITALL : 0);
  if (n > 0) return {Status::Ok, static_cast<size_t>(n)};
  if (n == 0) return {Status::Closed, 0};
  return {statusOfErrno(), 0};
}

void SocketChannel::setNoDelay(int fd) {
  const int one = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

}  // namespace vexa
