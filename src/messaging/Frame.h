#pragma once

#include <cstdint>
#include <string>

#include "messaging/ByteChannel.h"
#include "vexa/messaging/Message.h"
#include "vexa/util/MonitorData.h"

namespace vexa {

// The wire form of one message: a 4-byte length in native byte order, then that many bytes of
// gzip-compressed JSON text. Payloads move in pieces of at most 4096 bytes.
//
// Frames announcing more than kMaxBytes, or whose text would inflate past it, are refused: the
// reader answers Rejected and the caller drops the connection instead of allocating.
class Frame {
 public:
  static constexpr size_t kPieceSize = 4096;
  static constexpr uint32_t kMaxBytes = 64u << 20;

  // The compressed JSON text of a message; empty when it has no text.
  static std::optional<Bytes> payloadOf(const Message& message);

  // Writes one frame; false when nothing (or not all) could be sent. Callers serialize writes
  // to one channel.
  static bool write(ByteChannel& channel, const Message& message);
  static bool writePayload(ByteChannel& channel, const Bytes& payload);

  enum class Status { Text, Ignored, Closed, Rejected };
  struct ReadResult {
    Status status;
    std::string text;  // the JSON text, for Text
  };
  // Reads one frame. Ignored: an empty or undecodable frame (the stream stays usable).
  static ReadResult read(ByteChannel& channel);
};

}  // namespace vexa
