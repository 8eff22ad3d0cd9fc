#include "vexa/util/NotificationCenter.h"

#include <gtest/gtest.h>

namespace vexa {
namespace notification_center_test {

// Lives here beside its one poster, the watch queue.
TEST(NotificationCenterTest, ObserversMatchByNameAndSenderInTheOrderAdded) {
  NotificationCenter center;
  const int queueA = 0, queueB = 0;
  std::vector<std::string> seen;
  auto record = [&](const char* who) {
    return [&seen, who](const Notification& n) {
      seen.push_back(std::string(who) + ":" + n.name + ":" + n.userInfo.value("path", ""));
    };
  };
  center.addObserver("", nullptr, record("all"));
  center.addObserver("Written", &queueA, record("a-written"));
  center.addObserver("", &queueB, record("b"));
  center.post("Written", &queueA, {{"path", "/x"}});
  center.post("Deleted", &queueA, {{"path", "/y"}});
  center.post("Written", &queueB);
  EXPECT_EQ(seen, (std::vector<std::string>{"all:Written:/x", "a-written:Written:/x",
                                            "all:Deleted:/y", "all:Written:", "b:Written:"}));
}

TEST(NotificationCenterTest, AnObserverMayRemoveItselfAndPostWhileBeingCalled) {
  NotificationCenter center;
  int calls = 0;
  uint64_t token = 0;
  token = center.addObserver("Once", nullptr, [&](const Notification&) {
    ++calls;
    center.removeObserver(token);
    center.post("Once", nullptr);  // no longer observed: no recursion
  });
  center.post("Once", nullptr);
  center.post("Once", nullptr);
  EXPECT_EQ(calls, 1);
}

}  // namespace notification_center_test
}  // namespace vexa
