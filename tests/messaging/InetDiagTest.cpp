#include "messaging/linux/InetDiag.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>

#include <cstring>
#include <limits>

namespace vexa {
namespace inet_diag_test {

// A loopback connection as the agent sees it: our end 127.0.0.1:40133, the peer's
// 127.0.0.1:40134.
SocketTuple recordedTuple() {
  SocketTuple t;
  t.family = SocketTuple::Family::IPv4;
  t.localAddress = {127, 0, 0, 1};
  t.remoteAddress = {127, 0, 0, 1};
  t.localPort = 40133;
  t.remotePort = 40134;
  return t;
}

// The kernel's answer (6.x) to peerRequest(recordedTuple(), 7), the peer running as uid 65534.
const std::vector<uint8_t> kRecordedReply = {
    0x7c, 0x00, 0x00, 0x00, 0x14, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0xf4, 0x4d, 0x00, 0x00,
    0x02, 0x01, 0x00, 0x00, 0x9c, 0xc6, 0x9c, 0xc5, 0x7f, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7f, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x10, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0xfe, 0xff, 0x00, 0x00, 0xc3, 0x54, 0x01, 0x00, 0x05, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x08, 0x00, 0x0f, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0c, 0x00, 0x15, 0x00, 0x01, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x06, 0x00, 0x16, 0x00, 0x52, 0x00, 0x00, 0x00};

std::error_code errorOf(const std::variant<uint32_t, std::error_code>& answer) {
  const auto* error = std::get_if<std::error_code>(&answer);
  return error ? *error : std::error_code();
}

TEST(InetDiagTest, TheRequestAsksForThePeersSocketByExactMatch) {
  const auto bytes = InetDiag::peerRequest(recordedTuple(), 7);
  struct {
    nlmsghdr header;
    inet_diag_req_v2 body;
  } request;
  ASSERT_EQ(bytes.size(), sizeof request);
  std::memcpy(&request, bytes.data(), sizeof request);
  EXPECT_EQ(request.header.nlmsg_len, sizeof request);
  EXPECT_EQ(request.header.nlmsg_type, SOCK_DIAG_BY_FAMILY);
  EXPECT_EQ(request.header.nlmsg_flags, NLM_F_REQUEST);  // no dump: one socket, one answer
  EXPECT_EQ(request.header.nlmsg_seq, 7u);
  EXPECT_EQ(request.body.sdiag_family, AF_INET);
  EXPECT_EQ(request.body.sdiag_protocol, IPPROTO_TCP);
  // The peer's socket: its source is our remote end.
  EXPECT_EQ(ntohs(request.body.id.idiag_sport), 40134);
  EXPECT_EQ(ntohs(request.body.id.idiag_dport), 40133);
  EXPECT_EQ(request.body.id.idiag_cookie[0], INET_DIAG_NOCOOKIE);
  EXPECT_EQ(request.body.id.idiag_cookie[1], INET_DIAG_NOCOOKIE);
}

TEST(InetDiagTest, ARecordedReplyGivesThePeersOwner) {
  const auto answer = InetDiag::parsePeerReply(kRecordedReply, recordedTuple(), 7);
  ASSERT_TRUE(std::holds_alternative<uint32_t>(answer));
  EXPECT_EQ(std::get<uint32_t>(answer), 65534u);
}

TEST(InetDiagTest, RepliesThatDoNotAnswerTheQuestionAreMalformed) {
  const std::error_code malformed(EBADMSG, std::generic_category());
  // An answer to an earlier request, or about another socket, is not this one's.
  EXPECT_EQ(errorOf(InetDiag::parsePeerReply(kRecordedReply, recordedTuple(), 8)), malformed);
  SocketTuple other = recordedTuple();
  other.remotePort = 40135;
  EXPECT_EQ(errorOf(InetDiag::parsePeerReply(kRecordedReply, other, 7)), malformed);
  // Every truncation, and a length field that overstates the data.
  for (size_t size = 0; size < kRecordedReply.size(); ++size) {
    std::vector<uint8_t> cut(kRecordedReply.begin(), kRecordedReply.begin() + size);
    EXPECT_EQ(errorOf(InetDiag::parsePeerReply(cut, recordedTuple(), 7)), malformed) << size;
  }
  std::vector<uint8_t> overstated = kRecordedReply;
  overstated[1] = 0x10;
  EXPECT_EQ(errorOf(InetDiag::parsePeerReply(overstated, recordedTuple(), 7)), malformed);
}

std::vector<uint8_t> errorReply(int error) {
  struct {
    nlmsghdr header;
    nlmsgerr error;
  } reply{};
  reply.header.nlmsg_len = sizeof reply;
  reply.header.nlmsg_type = NLMSG_ERROR;
  reply.header.nlmsg_seq = 7;
  reply.error.error = error;
  return {reinterpret_cast<uint8_t*>(&reply), reinterpret_cast<uint8_t*>(&reply) + sizeof reply};
}

TEST(InetDiagTest, AKernelErrorIsPassedOnAndNothingElseTakenForOne) {
  const std::error_code malformed(EBADMSG, std::generic_category());
  // The peer has gone.
  EXPECT_EQ(errorOf(InetDiag::parsePeerReply(errorReply(-ENOENT), recordedTuple(), 7)),
            std::error_code(ENOENT, std::generic_category()));
  // An acknowledgement, a positive number and the most negative int (which cannot be negated).
  for (const int error : {0, EPERM, std::numeric_limits<int>::min(), -5000}) {
    EXPECT_EQ(errorOf(InetDiag::parsePeerReply(errorReply(error), recordedTuple(), 7)), malformed)
        << error;
  }
}

}  // namespace inet_diag_test
}  // namespace vexa
