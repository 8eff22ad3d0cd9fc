#include "vexa/util/RunLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/Signal.h"
#include "vexa/util/Timer.h"

namespace vexa {
namespace run_loop_test {

using namespace std::chrono_literals;

TEST(RunLoopTest, MainLoopIsTheInitialThreadsLoop) {
  EXPECT_TRUE(RunLoop::isMainThread());
  EXPECT_TRUE(RunLoop::current() == RunLoop::main());
  std::thread([] {
    EXPECT_FALSE(RunLoop::isMainThread());
    EXPECT_FALSE(RunLoop::current() == RunLoop::main());
    EXPECT_TRUE(RunLoop::current() == RunLoop::current());
  }).join();
}

TEST(RunLoopTest, PostNeverRunsSynchronouslyAndKeepsOrder) {
  std::vector<int> seen;
  RunLoop loop = RunLoop::main();
  for (int i = 0; i < 50; ++i) loop.post([&seen, i] { seen.push_back(i); });
  EXPECT_TRUE(seen.empty());
  ASSERT_TRUE(loop.runUntil([&] { return seen.size() == 50; }, 5s));
  for (int i = 0; i < 50; ++i) EXPECT_EQ(seen[i], i);
}

TEST(RunLoopTest, WorkPostedFromManyThreadsAllRunsOnTheMainThread) {
  constexpr int kThreads = 8, kEach = 200;
  std::atomic<int> ran{0};
  std::atomic<int> offMain{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kEach; ++i) {
        RunLoop::main().post([&] {
          if (!RunLoop::isMainThread()) ++offMain;
          ++ran;
        });
      }
    });
  }
  for (auto& t : threads) t.join();
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return ran == kThreads * kEach; }, 10s));
  EXPECT_EQ(offMain, 0);
}

TEST(RunLoopTest, TimerFiresOnTheThreadWhoseLoopHoldsIt) {
  std::atomic<std::thread::id> firedOn{};
  std::thread::id worker;
  std::thread t([&] {
    worker = std::this_thread::get_id();
    int fired = 0;
    auto timer = Timer::scheduled(0.01, true, [&](Timer& self) {
      firedOn = std::this_thread::get_id();
      if (++fired == 3) self.invalidate();
    });
    EXPECT_TRUE(RunLoop::current().runUntil([&] { return fired == 3; }, 5s));
    EXPECT_FALSE(timer->isValid());
  });
  // The main loop must not run the worker's timer.
  RunLoop::main().runUntil([] { return false; }, 30ms);
  t.join();
  EXPECT_EQ(firedOn.load(), worker);
}

TEST(RunLoopTest, InvalidatedTimerNeverFiresAgain) {
  int fired = 0;
  auto timer = Timer::scheduled(0.005, true, [&](Timer&) { ++fired; });
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return fired >= 2; }, 5s));
  timer->invalidate();
  timer->invalidate();  // a second call is harmless
  const int atInvalidate = fired;
  // Several intervals pass with the loop turning: nothing more may fire.
  int ticks = 0;
  auto probe = Timer::scheduled(0.005, true, [&](Timer&) { ++ticks; });
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return ticks >= 10; }, 5s));
  probe->invalidate();
  EXPECT_EQ(fired, atInvalidate);
  EXPECT_FALSE(timer->isValid());
}

TEST(RunLoopTest, InvalidateFromAnotherThreadStopsTheTimer) {
  std::atomic<int> fired{0};
  auto timer = Timer::scheduled(0.002, true, [&](Timer&) { ++fired; });
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return fired >= 1; }, 5s));
  std::thread([timer] { timer->invalidate(); }).join();
  const int atInvalidate = fired;
  RunLoop::main().runUntil([] { return false; }, 30ms);
  EXPECT_EQ(fired, atInvalidate);
}

TEST(RunLoopTest, OneShotTimerFiresOnceAndLivesWithoutItsHandle) {
  int fired = 0;
  Timer::scheduled(0.001, false, [&](Timer& self) {
    ++fired;
    EXPECT_FALSE(self.isValid());
  });  // handle dropped at once: the loop keeps the timer
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return fired == 1; }, 5s));
  RunLoop::main().runUntil([] { return false; }, 20ms);
  EXPECT_EQ(fired, 1);
}

TEST(RunLoopTest, TimerWaitsAtLeastItsInterval) {
  const auto start = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point firedAt;
  bool fired = false;
  Timer::scheduled(0.05, false, [&](Timer&) {
    firedAt = std::chrono::steady_clock::now();
    fired = true;
  });
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return fired; }, 5s));
  EXPECT_GE(firedAt - start, 50ms);
}

TEST(RunLoopTest, QuitStopsRunFromAnotherThreadEvenBeforeRunStarts) {
  test::Signal started;
  RunLoop loop = RunLoop::main();
  // Quit before run: run returns at once instead of hanging.
  std::thread([loop] { loop.quit(); }).join();
  loop.run();

  std::thread quitter([&] {
    started.waitFor(1);
    loop.quit();
  });
  loop.post([&] { started.add(); });
  loop.run();
  quitter.join();
  EXPECT_EQ(started.count(), 1);  // the second run ran the posted work before it was told to quit
}

TEST(RunLoopTest, AThreadRunsItsOwnLoopUntilQuit) {
  std::atomic<bool> ran{false};
  RunLoop workerLoop = RunLoop::main();
  test::Signal ready;
  std::thread t([&] {
    workerLoop = RunLoop::current();
    ready.add();
    workerLoop.run();
  });
  ASSERT_TRUE(ready.waitFor(1));
  workerLoop.post([&] {
    ran = true;
    RunLoop::current().quit();
  });
  t.join();
  EXPECT_TRUE(ran);
}

TEST(RunLoopTest, ThrowingWorkDoesNotStopTheLoop) {
  bool after = false;
  RunLoop::main().post([] { throw std::runtime_error("boom"); });
  RunLoop::main().post([&] { after = true; });
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return after; }, 5s));
}

}  // namespace run_loop_test
}  // namespace vexa
