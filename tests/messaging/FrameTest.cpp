#include "messaging/Frame.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <thread>

#include "messaging/SocketChannel.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace frame_test {

// A channel that records every send call and plays back scripted receive data.
class ScriptedChannel : public ByteChannel {
 public:
  Result send(const uint8_t* data, size_t size) override {
    if (!sendScript.empty()) {
      Status s = sendScript.front();
      sendScript.pop_front();
      if (s != Status::Ok) return {s, 0};
    }
    sends.push_back(size);
    sent.insert(sent.end(), data, data + size);
    return {Status::Ok, size};
  }
  Result receive(uint8_t* data, size_t size, bool all) override {
    if (incoming.empty()) return {Status::Closed, 0};
    size_t n = std::min(size, incoming.size());
    if (!all) n = std::min(n, chunk);
    std::copy(incoming.begin(), incoming.begin() + static_cast<long>(n), data);
    incoming.erase(incoming.begin(), incoming.begin() + static_cast<long>(n));
    return {Status::Ok, n};
  }
  void feed(uint32_t length, const Bytes& payload) {
    uint8_t prefix[4];
    std::memcpy(prefix, &length, 4);
    incoming.insert(incoming.end(), prefix, prefix + 4);
    incoming.insert(incoming.end(), payload.begin(), payload.end());
  }

  std::deque<Status> sendScript;
  std::vector<size_t> sends;
  Bytes sent;
  std::deque<uint8_t> incoming;
  size_t chunk = 1000;
};

TEST(FrameTest, PayloadGoesInPiecesOfAtMost4096) {
  ScriptedChannel channel;
  const Bytes payload(10000, 0xAB);
  ASSERT_TRUE(Frame::writePayload(channel, payload));
  EXPECT_EQ(channel.sends, (std::vector<size_t>{4, 4096, 4096, 1808}));
  const uint8_t littleEndian10000[4] = {0x10, 0x27, 0, 0};
  EXPECT_EQ(0, std::memcmp(channel.sent.data(), littleEndian10000, 4));
}

TEST(FrameTest, AFailedPrefixDropsTheMessageAndADeadPeerEndsTheSend) {
  ScriptedChannel refused;
  refused.sendScript = {ByteChannel::Status::Failed};
  EXPECT_FALSE(Frame::write(refused, Message("quit")));
  EXPECT_TRUE(refused.sends.empty());

  ScriptedChannel flaky;  // a retryable failure mid-payload is retried
  flaky.sendScript = {ByteChannel::Status::Ok, ByteChannel::Status::Retry, ByteChannel::Status::Ok};
  ASSERT_TRUE(Frame::writePayload(flaky, Bytes(5000, 1)));
  EXPECT_EQ(flaky.sends, (std::vector<size_t>{4, 4096, 904}));

  ScriptedChannel gone;  // a closed peer is not retried for ever
  gone.sendScript = {ByteChannel::Status::Ok, ByteChannel::Status::Closed};
  EXPECT_FALSE(Frame::writePayload(gone, Bytes(5000, 1)));
}

TEST(FrameTest, MessagesWithoutTextSendNothing) {
  ScriptedChannel channel;
  EXPECT_FALSE(Frame::write(channel, Message("\xff")));
  EXPECT_TRUE(channel.sends.empty());
}

TEST(FrameTest, ReadingFramesAndRefusingHostileOnes) {
  std::vector<std::string> logged;
  SystemLog::setSink([&](const std::string& m) { logged.push_back(m); });
  ScriptedChannel channel;
  const Bytes good = *Frame::payloadOf(Message("quit"));
  channel.feed(0, {});               // empty: ignored
  channel.feed(5, {1, 2, 3, 4, 5});  // not gzip: ignored
  channel.feed(static_cast<uint32_t>(good.size()), good);
  EXPECT_EQ(Frame::read(channel).status, Frame::Status::Ignored);
  EXPECT_EQ(Frame::read(channel).status, Frame::Status::Ignored);
  auto frame = Frame::read(channel);
  EXPECT_EQ(frame.status, Frame::Status::Text);
  EXPECT_EQ(frame.text, R"({"name":"quit"})");
  EXPECT_EQ(Frame::read(channel).status, Frame::Status::Closed);  // nothing more

  channel.feed(0xFFFFFFFF, {});  // 4 GiB announced: refused before any allocation
  EXPECT_EQ(Frame::read(channel).status, Frame::Status::Rejected);
  ASSERT_EQ(logged.size(), 1u);

  channel.incoming.clear();
  const Bytes bomb = *MonitorData::gzipData(std::string(Frame::kMaxBytes + 1, ' '));
  channel.feed(static_cast<uint32_t>(bomb.size()), bomb);
  EXPECT_EQ(Frame::read(channel).status, Frame::Status::Rejected);
  EXPECT_EQ(logged.size(), 2u);

  channel.incoming.clear();
  channel.feed(100, Bytes(10, 0));  // the peer stops mid-frame and closes
  EXPECT_EQ(Frame::read(channel).status, Frame::Status::Closed);
  SystemLog::setSink(nullptr);
}

TEST(FrameTest, LargeMessagesCrossARealSocketIntact) {
  int pair[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
  nlohmann::json list = nlohmann::json::array();
  for (int i = 0; i < 20000; ++i) list.push_back("/home/u/Applications/App" + std::to_string(i));
  const Message big("RemoveCommand", {{"AppFiles", list}});
  std::thread writer([&] {
    SocketChannel out(pair[0]);
    EXPECT_TRUE(Frame::write(out, big));
  });
  SocketChannel in(pair[1]);
  auto frame = Frame::read(in);
  writer.join();
  ASSERT_EQ(frame.status, Frame::Status::Text);
  EXPECT_EQ(Message::fromJSON(frame.text)->parms()["AppFiles"].size(), 20000u);
  ::close(pair[0]);
  EXPECT_EQ(Frame::read(in).status, Frame::Status::Closed);
  ::close(pair[1]);
}

}  // namespace frame_test
}  // namespace vexa
