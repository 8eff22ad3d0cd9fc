#include "messaging/SocketChannel.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
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
  if (!sendDeadline_) {
    const ssize_t n = ::send(fd_, data, size, MSG_NOSIGNAL);
    if (n >= 0) return {Status::Ok, static_cast<size_t>(n)};
    return {statusOfErrno(), 0};
  }
  // Non-blocking sends, waiting for room in between, until the deadline.
  for (;;) {
    const ssize_t n = ::send(fd_, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0) return {Status::Ok, static_cast<size_t>(n)};
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) return {statusOfErrno(), 0};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*sendDeadline_ - Clock::now());
    if (left.count() <= 0) {
      timedOut_ = true;
      return {Status::TimedOut, 0};
    }
    pollfd wait{fd_, POLLOUT, 0};
    const int ready = ::poll(&wait, 1, static_cast<int>(std::min<long long>(left.count(), 60000)));
    if (ready < 0 && errno != EINTR) return {Status::Failed, 0};
  }
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
