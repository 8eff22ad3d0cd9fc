#pragma once

#include <cstddef>
#include <cstdint>

namespace vexa {

// A connected byte stream (a TCP socket) as the frame reader and writer see it.
class ByteChannel {
 public:
  // TimedOut: a send missed its deadline. Part of a frame may have gone, so the stream is no
  // longer usable.
  enum class Status { Ok, Closed, Retry, Failed, TimedOut };
  struct Result {
    Status status;
    size_t bytes;  // moved, when Ok
  };
  virtual ~ByteChannel() = default;
  // One send call.
  virtual Result send(const uint8_t* data, size_t size) = 0;
  // One receive call; with `all`, waits until `size` bytes or the end of the stream.
  virtual Result receive(uint8_t* data, size_t size, bool all) = 0;
};

}  // namespace vexa
