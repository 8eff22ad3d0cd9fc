#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "messaging/Frame.h"
#include "messaging/SocketChannel.h"
#include "messaging/TcpConnector.h"

namespace vexa::test {

// A plain TCP client speaking frames, for driving the server from tests.
class RawClient {
 public:
  explicit RawClient(uint16_t port, const char* host = "127.0.0.1") {
    fd_ = TcpConnector::connect(host, port).release();
    connected_ = fd_ >= 0;
  }
  // Takes an unconnected socket made earlier.
  RawClient() { fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }
  bool connectTo(uint16_t port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    ::inet_pton(AF_INET, "127.0.0.1", &a.sin_addr);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    return connected_;
  }
  ~RawClient() {
    if (fd_ >= 0) ::close(fd_);
  }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  bool connected() const { return connected_; }
  int fd() const { return fd_; }
  bool send(const Message& m) {
    SocketChannel channel(fd_);
    return Frame::write(channel, m);
  }
  bool sendRaw(const void* data, size_t size) {
    return ::send(fd_, data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
  }
  // The next message's JSON text; empty on time-out or when the server closed.
  std::optional<std::string> receive(int timeoutMs = 10000) {
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) != 1) return std::nullopt;
    SocketChannel channel(fd_);
    auto frame = Frame::read(channel);
    if (frame.status != Frame::Status::Text) return std::nullopt;
    return frame.text;
  }
  // True when the server closed the connection within the time-out.
  bool closedByPeer(int timeoutMs = 10000) {
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) != 1) return false;
    char c;
    return ::recv(fd_, &c, 1, MSG_PEEK) == 0;
  }
  void close() {
    ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
  bool connected_ = false;
};

}  // namespace vexa::test
