#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "vexa/Export.h"
#include "vexa/messaging/Message.h"

namespace vexa {

// The host application's end of the agent's channel, for a host that reads what the agent says
// (XSocketClient drops what it receives). Frames go out whole; any thread may send, one thread
// receives.
class VEXA_EXPORT HostChannel {
 public:
  // Connects to the agent at host:port (an IPv4 or IPv6 address; empty means 127.0.0.1). Null when
  // the connection cannot be made.
  static std::unique_ptr<HostChannel> connect(const std::string& host, uint16_t port);
  ~HostChannel();
  HostChannel(const HostChannel&) = delete;
  HostChannel& operator=(const HostChannel&) = delete;

  // Writes one frame; false when the message has no text or the connection is gone.
  bool send(const Message& message);

  enum class Received {
    Text,     // `text` holds the next message's JSON text
    Closed,   // the agent closed the channel (or it failed)
    Rejected  // the agent sent a frame over the size limit; the channel is unusable
  };
  // Blocks until the next message that has text. Empty or undecodable frames are skipped.
  Received receive(std::string& text);

  // Ends both directions: a thread blocked in receive() returns Closed.
  void shutdown();

 private:
  explicit HostChannel(int fd);
  const int fd_;
  std::mutex sending_;
};

}  // namespace vexa
