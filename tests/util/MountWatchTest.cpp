#include "util/MountWatch.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "support/ScratchMount.h"
#include "support/TempDir.h"

namespace vexa {
namespace mount_watch_test {

using namespace std::chrono_literals;

class Changes {
 public:
  void count() {
    std::lock_guard lock(mutex_);
    ++count_;
    changed_.notify_all();
  }
  bool waitFor(int count, std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return count_ >= count; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int count_ = 0;
};

// The kernel's own signal: a mount and an unmount in this process's namespace each call back.
TEST(MountWatchTest, MountAndUnmountCallBack) {
  if (!test::ScratchMount::isolate()) GTEST_SKIP() << "needs root and a namespace of its own";
  Changes changes;
  const auto watch = MountWatch::start("/proc/self/mountinfo", [&] { changes.count(); });
  ASSERT_TRUE(watch);
  EXPECT_FALSE(changes.waitFor(1, 20ms));
  test::TempDir dir;
  test::ScratchMount scratch(dir.mkdir("volume"));
  ASSERT_TRUE(scratch.ok());
  EXPECT_TRUE(changes.waitFor(1, 5s));
  scratch.unmount();
  EXPECT_TRUE(changes.waitFor(2, 5s));
}

TEST(MountWatchTest, APlainFileNeverChanges) {
  test::TempDir dir;
  Changes changes;
  const auto watch = MountWatch::start(
      dir.write("mountinfo", "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"), [&] { changes.count(); });
  ASSERT_TRUE(watch);
  dir.write("mountinfo", "");
  EXPECT_FALSE(changes.waitFor(1, 50ms));
  EXPECT_FALSE(MountWatch::start(dir / "missing", [] {}));
}

}  // namespace mount_watch_test
}  // namespace vexa
