#include "util/WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>

#include "support/Signal.h"

namespace vexa {
namespace worker_pool_test {

using namespace std::chrono_literals;

TEST(WorkerPoolTest, GrowsUnderBlockingWorkAndShrinksToNothingWhenIdle) {
  WorkerPool pool(16, 50ms);
  EXPECT_EQ(pool.threadCount(), 0u);
  // Eight items that all wait for each other need eight threads at once.
  test::Signal arrived, released, finished;
  for (int i = 0; i < 8; ++i) {
    pool.submit([&] {
      arrived.add();
      released.waitFor(1);
      finished.add();
    });
  }
  ASSERT_TRUE(arrived.waitFor(8));
  EXPECT_EQ(pool.threadCount(), 8u);
  released.add();
  ASSERT_TRUE(finished.waitFor(8));
  // Idle workers go after the idle timeout; wait on the observable count with a deadline.
  EXPECT_TRUE(test::eventually([&] { return pool.threadCount() == 0; }, 5s));
}

TEST(WorkerPoolTest, NeverExceedsItsCeiling) {
  WorkerPool pool(3, 1s);
  std::atomic<int> concurrent{0}, peak{0};
  test::Signal done;
  for (int i = 0; i < 30; ++i) {
    pool.submit([&] {
      const int now = ++concurrent;
      int seen = peak.load();
      while (now > seen && !peak.compare_exchange_weak(seen, now)) {
      }
      std::this_thread::yield();
      --concurrent;
      done.add();
    });
  }
  ASSERT_TRUE(done.waitFor(30));
  EXPECT_LE(peak.load(), 3);
  EXPECT_LE(pool.threadCount(), 3u);
}

TEST(WorkerPoolTest, DestructorFinishesQueuedWorkAndDropsDelayedWork) {
  std::atomic<int> ran{0};
  std::atomic<bool> delayedRan{false};
  {
    WorkerPool pool(2, 1s);
    for (int i = 0; i < 100; ++i) pool.submit([&] { ++ran; });
    pool.submitAt(WorkerPool::Clock::now() + 1h, [&] { delayedRan = true; });
  }
  EXPECT_EQ(ran, 100);
  EXPECT_FALSE(delayedRan);
}

TEST(WorkerPoolTest, SurvivesThrowingItems) {
  WorkerPool pool(1, 1s);
  test::Signal done;
  pool.submit([] { throw 42; });
  pool.submit([&] { done.add(); });
  EXPECT_TRUE(done.waitFor(1));
}

}  // namespace worker_pool_test
}  // namespace vexa
