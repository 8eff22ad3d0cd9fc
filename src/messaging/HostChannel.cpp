#include "vexa/messaging/HostChannel.h"

#include <sys/socket.h>
#include <unistd.h>

#include "messaging/Frame.h"
#include "messaging/SocketChannel.h"
#include "messaging/TcpConnector.h"

namespace vexa {

std::unique_ptr<HostChannel> HostChannel::connect(const std::string& host, uint16_t port) {
  UniqueFd fd = TcpConnector::connect(host, port);
  if (!fd) return nullptr;
  return std::unique_ptr<HostChannel>(new HostChannel(fd.release()));
}

HostChannel::HostChannel(int fd) : fd_(fd) {}

HostChannel::~HostChannel() { ::close(fd_); }

bool HostChannel::send(const Message& message) {
  std::lock_guard lock(sending_);
  SocketChannel channel(fd_);
  return Frame::write(channel, message);
}

HostChannel::Received HostChannel::receive(std::string& text) {
  SocketChannel channel(fd_);
  for (;;) {
    Frame::ReadResult frame = Frame::read(channel);
    switch (frame.status) {
      case Frame::Status::Text:
        text = std::move(frame.text);
        return Received::Text;
      case Frame::Status::Ignored:
        continue;
      case Frame::Status::Closed:
        return Received::Closed;
      case Frame::Status::Rejected:
        return Received::Rejected;
    }
  }
}

void HostChannel::shutdown() { ::shutdown(fd_, SHUT_RDWR); }

}  // namespace vexa
