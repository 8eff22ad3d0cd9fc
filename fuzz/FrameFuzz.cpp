// Arbitrary bytes as a peer's side of a connection: frames are read until the stream ends or
// is refused; whatever reads as text is handled as a message would be.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "messaging/ByteChannel.h"
#include "messaging/Frame.h"

namespace {

class BytesChannel : public vexa::ByteChannel {
 public:
  BytesChannel(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  Result send(const uint8_t*, size_t size) override { return {Status::Ok, size}; }
  Result receive(uint8_t* out, size_t size, bool all) override {
    if (at_ == size_) return {Status::Closed, 0};
    // Without `all`, deliver in small uneven pieces, as a network would.
    const size_t n = std::min(size_ - at_, all ? size : std::min<size_t>(size, 1 + at_ % 7));
    std::memcpy(out, data_ + at_, n);
    at_ += n;
    return {Status::Ok, n};
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  BytesChannel channel(data, size);
  for (int frames = 0; frames < 64; ++frames) {
    const auto frame = vexa::Frame::read(channel);
    if (frame.status == vexa::Frame::Status::Closed ||
        frame.status == vexa::Frame::Status::Rejected) {
      break;
    }
    if (frame.status == vexa::Frame::Status::Text) {
      if (auto message = vexa::Message::fromJSON(frame.text)) message->JSONText();
    }
  }
  return 0;
}
