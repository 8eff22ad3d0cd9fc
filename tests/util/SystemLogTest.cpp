#include "vexa/util/SystemLog.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace vexa {
namespace system_log_test {

TEST(SystemLogTest, SinkReceivesFormattedMessagesFromEveryThread) {
  std::vector<std::string> seen;  // the sink is called one message at a time
  SystemLog::setSink([&](const std::string& m) { seen.push_back(m); });
  SystemLog::log("%s: value %d, %s", "-[Class method]", 42, std::string(3000, 'x').c_str());
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 100; ++i) SystemLog::log("message %d", i);
    });
  }
  for (auto& th : threads) th.join();
  SystemLog::setSink(nullptr);
  ASSERT_EQ(seen.size(), 401u);
  EXPECT_EQ(seen[0], "-[Class method]: value 42, " + std::string(3000, 'x'));
  SystemLog::log("to syslog: %s", "no sink set, must not crash");
}

}  // namespace system_log_test
}  // namespace vexa
