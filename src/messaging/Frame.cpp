#include "messaging/Frame.h"

#include <cstring>

#include "vexa/util/SystemLog.h"

namespace vexa {

std::optional<Bytes> Frame::payloadOf(const Message& message) {
  auto text = message.JSONText();
  if (!text || text->empty()) return std::nullopt;
  return MonitorData::gzipData(*text);
}

bool Frame::write(ByteChannel& channel, const Message& message) {
  auto payload = payloadOf(message);
  if (!payload) return false;
  return writePayload(channel, *payload);
}

bool Frame::writePayload(ByteChannel& channel, const Bytes& payload) {
  const auto length = static_cast<uint32_t>(payload.size());
  uint8_t prefix[sizeof length];
  std::memcpy(prefix, &length, sizeof length);
  // The prefix goes with one call; a prefix that does not go at all drops the message.
  auto sent = channel.send(prefix, sizeof prefix);
  if (sent.status != ByteChannel::Status::Ok || sent.bytes == 0) return false;
  for (size_t done = sent.bytes; done < sizeof prefix;) {  // a split prefix is finished
    auto more = channel.send(prefix + done, sizeof prefix - done);
    if (more.status == ByteChannel::Status::Ok) {
      done += more.bytes;
    } else if (more.status != ByteChannel::Status::Retry) {
      return false;
    }
  }
  uint8_t staging[kPieceSize];
  for (size_t done = 0; done < payload.size();) {
    const size_t piece = std::min(kPieceSize, payload.size() - done);
    std::memcpy(staging, payload.data() + done, piece);
    auto result = channel.send(staging, piece);
    if (result.status == ByteChannel::Status::Ok) {
      done += result.bytes;
    } else if (result.status != ByteChannel::Status::Retry) {
      return false;  // the peer is gone: retrying would never end
    }
  }
  return true;
}

Frame::ReadResult Frame::read(ByteChannel& channel) {
  uint8_t prefix[4];
  auto got = channel.receive(prefix, sizeof prefix, true);
  while (got.status == ByteChannel::Status::Retry)
    got = channel.receive(prefix, sizeof prefix, true);
  if (got.status == ByteChannel::Status::Closed || got.status == ByteChannel::Status::Failed ||
      got.bytes < sizeof prefix) {
    return {Status::Closed, {}};
  }
  uint32_t length;
  std::memcpy(&length, prefix, sizeof length);
  if (length > kMaxBytes) {
    SystemLog::log("refused a frame of %u bytes (more than %u); closing the connection", length,
                   kMaxBytes);
    return {Status::Rejected, {}};
  }
  Bytes payload;
  payload.reserve(std::min<size_t>(length, 1 << 20));  // grows with what actually arrives
  uint8_t buffer[kPieceSize];
  while (payload.size() < length) {
    const size_t want = std::min<size_t>(kPieceSize, length - payload.size());
    auto piece = channel.receive(buffer, want, false);
    if (piece.status == ByteChannel::Status::Retry) continue;
    if (piece.status != ByteChannel::Status::Ok || piece.bytes == 0) return {Status::Closed, {}};
    payload.insert(payload.end(), buffer, buffer + piece.bytes);
  }
  if (payload.empty()) return {Status::Ignored, {}};
  bool tooLarge = false;
  auto text = MonitorData::ungzipData(payload, kMaxBytes, &tooLarge);
  if (tooLarge) {
    SystemLog::log("refused a frame that inflates past %u bytes; closing the connection",
                   kMaxBytes);
    return {Status::Rejected, {}};
  }
  if (!text || text->empty()) return {Status::Ignored, {}};
  return {Status::Text, std::string(text->begin(), text->end())};
}

}  // namespace vexa
