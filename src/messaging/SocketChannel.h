#pragma once

#include <chrono>
#include <optional>

#include "messaging/ByteChannel.h"

namespace vexa {

// A ByteChannel over a connected socket descriptor (not owned). Sends never raise SIGPIPE.
//
// With a send deadline, every send made through this channel must be done by that instant (the
// deadline is fixed when the channel is made, so one channel per frame bounds the whole frame):
// a peer that stops reading makes send answer TimedOut instead of blocking for ever. Receives
// always block.
class SocketChannel final : public ByteChannel {
 public:
  using Clock = std::chrono::steady_clock;

  explicit SocketChannel(int fd) : fd_(fd) {}
  SocketChannel(int fd, std::chrono::milliseconds sendTimeout)
      : fd_(fd), sendDeadline_(Clock::now() + sendTimeout) {}

  Result send(const uint8_t* data, size_t size) override;
  Result receive(uint8_t* data, size_t size, bool all) override;
  // Whether a send has missed the deadline.
  bool timedOut() const { return timedOut_; }

  // Turns off Nagle's delay: a frame's prefix and payload are separate sends, and a request
  // would otherwise wait for the peer's delayed acknowledgement.
  static void setNoDelay(int fd);

 private:
  int fd_;
  std::optional<Clock::time_point> sendDeadline_;
  bool timedOut_ = false;
};

}  // namespace vexa
