#include "messaging/SameUserPolicy.h"

#include <gtest/gtest.h>

#include <cctype>
#include <mutex>

#include "vexa/util/SystemLog.h"

namespace vexa {
namespace same_user_policy_test {

// Answers every lookup with one owner (or one error) and counts the lookups.
class FixedCredentials : public PeerCredentials {
 public:
  explicit FixedCredentials(std::variant<uint32_t, std::error_code> owner) : answer(owner) {}
  std::variant<uint32_t, std::error_code> ownerOfPeer(const SocketTuple&) override {
    ++lookups;
    return answer;
  }
  std::variant<uint32_t, std::error_code> answer;
  int lookups = 0;
};

SocketTuple peerAt(SocketTuple::Family family, std::array<uint8_t, 16> address) {
  SocketTuple t;
  t.family = family;
  t.remoteAddress = address;
  t.localAddress = address;
  t.localPort = 13145;
  t.remotePort = 50000;
  return t;
}

const SocketTuple kLoopback4 = peerAt(SocketTuple::Family::IPv4, {127, 0, 0, 1});
const SocketTuple kLoopback4Other = peerAt(SocketTuple::Family::IPv4, {127, 1, 2, 3});
const SocketTuple kLoopback6 =
    peerAt(SocketTuple::Family::IPv6, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
const SocketTuple kMapped =
    peerAt(SocketTuple::Family::IPv6, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 127, 0, 0, 1});
const SocketTuple kRemote4 = peerAt(SocketTuple::Family::IPv4, {192, 0, 2, 7});
const SocketTuple kRemote6 =
    peerAt(SocketTuple::Family::IPv6, {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});

struct Case {
  const char* what;
  SocketTuple tuple;
  std::variant<uint32_t, std::error_code> owner;
  bool allowRemote;
  const char* refusal;  // null: admitted
  bool looksUp;
};

class SameUserPolicyCases : public ::testing::TestWithParam<Case> {};

TEST_P(SameUserPolicyCases, Decides) {
  const Case& c = GetParam();
  auto credentials = std::make_shared<FixedCredentials>(c.owner);
  SameUserPolicy policy(credentials, 1000, c.allowRemote);
  const auto refusal = policy.refusal(c.tuple);
  if (c.refusal) {
    EXPECT_EQ(refusal, std::optional<std::string>(c.refusal));
  } else {
    EXPECT_EQ(refusal, std::nullopt);
  }
  EXPECT_EQ(credentials->lookups, c.looksUp ? 1 : 0);
}

const std::error_code kGone(ENOENT, std::generic_category());
const std::error_code kNoNetlink(EPROTONOSUPPORT, std::generic_category());

INSTANTIATE_TEST_SUITE_P(
    Peers, SameUserPolicyCases,
    ::testing::Values(
        Case{"same user", kLoopback4, 1000u, false, nullptr, true},
        Case{"same user, other loopback address", kLoopback4Other, 1000u, false, nullptr, true},
        Case{"same user over IPv6", kLoopback6, 1000u, false, nullptr, true},
        Case{"same user, IPv4-mapped", kMapped, 1000u, false, nullptr, true},
        Case{"another user", kLoopback4, 65534u, false, SameUserPolicy::kOtherUser, true},
        Case{"root is another user too", kLoopback6, 0u, false, SameUserPolicy::kOtherUser, true},
        Case{"peer gone before the lookup", kLoopback4, kGone, false, SameUserPolicy::kUnknownOwner,
             true},
        Case{"no netlink", kLoopback4, kNoNetlink, false, SameUserPolicy::kUnknownOwner, true},
        Case{"another machine", kRemote4, 1000u, false, SameUserPolicy::kRemote, false},
        Case{"another machine over IPv6", kRemote6, 1000u, false, SameUserPolicy::kRemote, false},
        Case{"another machine, allowed", kRemote4, 1000u, true, nullptr, false},
        Case{"another user is refused even when remote ones are allowed", kLoopback4, 65534u, true,
             SameUserPolicy::kOtherUser, true}),
    [](const auto& test) {
      std::string name;
      for (const char* p = test.param.what; *p; ++p) name += std::isalnum(*p) ? *p : '_';
      return name;
    });

TEST(SameUserPolicyTest, AFloodOfRefusalsLogsEachKindOnceAndThenStops) {
  std::mutex mutex;
  std::vector<std::string> lines;
  SystemLog::setSink([&](const std::string& line) {
    std::lock_guard lock(mutex);
    lines.push_back(line);
  });
  auto credentials = std::make_shared<FixedCredentials>(65534u);
  SameUserPolicy policy(credentials, 1000, false);
  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(policy.refusal(kLoopback4));
  {
    std::lock_guard lock(mutex);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("uid 65534"), std::string::npos) << lines[0];
  }
  // Many different owners: a bounded number of lines, then one saying so.
  for (uint32_t uid = 2000; uid < 2000 + 5 * SameUserPolicy::kLoggedRefusals; ++uid) {
    credentials->answer = uid;
    EXPECT_TRUE(policy.refusal(kLoopback4));
  }
  SystemLog::setSink(nullptr);
  std::lock_guard lock(mutex);
  EXPECT_EQ(lines.size(), SameUserPolicy::kLoggedRefusals + 1);
}

}  // namespace same_user_policy_test
}  // namespace vexa
