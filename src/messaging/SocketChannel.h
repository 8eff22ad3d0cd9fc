#pragma once

#include "messaging/ByteChannel.h"

namespace vexa {

// A ByteChannel over a connected socket descriptor (not owned). Sends never raise SIGPIPE.
class SocketChannel final : public ByteChannel {
 public:
  explicit SocketChannel(int fd) : fd_(fd) {}
  Result send(const uint8_t* data, size_t size) override;
  Result receive(uint8_t* data, size_t size, bool all) override;

  // Turns off Nagle's delay: a frame's prefix and payload are separate sends, and a request
  // would otherwise wait for the peer's delayed acknowledgement.
  static void setNoDelay(int fd);

 private:
  int fd_;
};

}  // namespace vexa
