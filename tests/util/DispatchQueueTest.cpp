#include "vexa/util/DispatchQueue.h"

#include <gtest/gtest.h>

#include <map>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "support/Signal.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace dispatch_queue_test {

using namespace std::chrono_literals;

TEST(DispatchQueueTest, SerialQueueRunsOneAtATimeInSubmissionOrder) {
  DispatchQueue queue("command.top.queue", DispatchQueue::Kind::Serial);
  constexpr int kItems = 500;
  std::vector<int> order;  // touched only by queue items: a serial queue needs no lock
  std::atomic<int> running{0};
  std::atomic<int> overlap{0};
  test::Signal done;
  for (int i = 0; i < kItems; ++i) {
    queue.async([&, i] {
      if (++running > 1) ++overlap;
      order.push_back(i);
      --running;
      done.add();
    });
  }
  ASSERT_TRUE(done.waitFor(kItems));
  EXPECT_EQ(overlap, 0);
  queue.sync([&] {
    ASSERT_EQ(order.size(), static_cast<size_t>(kItems));
    for (int i = 0; i < kItems; ++i) EXPECT_EQ(order[i], i);
  });
}

TEST(DispatchQueueTest, SerialOrderHoldsPerProducerWithManyProducers) {
  DispatchQueue queue("serial", DispatchQueue::Kind::Serial);
  constexpr int kThreads = 6, kEach = 300;
  std::vector<std::vector<int>> perProducer(kThreads);
  test::Signal done;
  std::vector<std::thread> producers;
  for (int t = 0; t < kThreads; ++t) {
    producers.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) {
        queue.async([&, t, i] {
          perProducer[t].push_back(i);
          done.add();
        });
      }
    });
  }
  for (auto& p : producers) p.join();
  ASSERT_TRUE(done.waitFor(kThreads * kEach));
  queue.sync([&] {
    for (const auto& seen : perProducer) {
      ASSERT_EQ(seen.size(), static_cast<size_t>(kEach));
      for (int i = 0; i < kEach; ++i) EXPECT_EQ(seen[i], i);
    }
  });
}

TEST(DispatchQueueTest, ConcurrentQueuesRunItemsInParallel) {
  for (DispatchQueue* queue :
       {&DispatchQueue::global(),
        new DispatchQueue("com.dispatch.mount", DispatchQueue::Kind::Concurrent)}) {
    // Two items that each wait for the other can only finish if they run at the same time.
    test::Signal a, b;
    test::Signal finished;
    queue->async([&] {
      a.add();
      if (b.waitFor(1, 5s)) finished.add();
    });
    queue->async([&] {
      b.add();
      if (a.waitFor(1, 5s)) finished.add();
    });
    EXPECT_TRUE(finished.waitFor(2)) << queue->label();
    if (queue != &DispatchQueue::global()) delete queue;
  }
}

TEST(DispatchQueueTest, WorkFromManyThreadsAllRunsOnTheGlobalQueue) {
  constexpr int kThreads = 8, kEach = 1000;
  test::Signal done;
  std::vector<std::thread> producers;
  for (int t = 0; t < kThreads; ++t) {
    producers.emplace_back([&] {
      for (int i = 0; i < kEach; ++i) DispatchQueue::global().async([&] { done.add(); });
    });
  }
  for (auto& p : producers) p.join();
  EXPECT_TRUE(done.waitFor(kThreads * kEach));
}

TEST(DispatchQueueTest, AfterWaitsAtLeastItsDelayAndKeepsDeadlineOrder) {
  using Clock = std::chrono::steady_clock;
  DispatchQueue queue("delayed", DispatchQueue::Kind::Serial);
  std::mutex mutex;
  std::vector<std::pair<int, Clock::time_point>> fired;
  std::map<int, Clock::time_point> deadlines;  // from the moment each was asked for
  test::Signal done;
  for (auto [id, delay] : {std::pair{3, 0.09}, {1, 0.03}, {2, 0.06}}) {
    {
      std::lock_guard lock(mutex);
      deadlines[id] = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                         std::chrono::duration<double>(delay));
    }
    queue.after(delay, [&, id = id] {
      std::lock_guard lock(mutex);
      fired.emplace_back(id, Clock::now());
      done.add();
    });
  }
  ASSERT_TRUE(done.waitFor(3));
  std::lock_guard lock(mutex);
  ASSERT_EQ(fired.size(), 3u);
  for (size_t i = 0; i < fired.size(); ++i) {
    EXPECT_GE(fired[i].second, deadlines[fired[i].first]) << "item " << fired[i].first;
    // Items run in the order of their deadlines (which a slow machine may make differ from
    // the order of their delays).
    if (i > 0) {
      EXPECT_LE(deadlines[fired[i - 1].first], deadlines[fired[i].first]);
    }
  }
}

TEST(DispatchQueueTest, PendingWorkOutlivesTheQueueObject) {
  test::Signal done;
  {
    DispatchQueue queue("short-lived", DispatchQueue::Kind::Serial);
    for (int i = 0; i < 20; ++i) queue.async([&] { done.add(); });
    queue.after(0.01, [&] { done.add(); });
  }
  EXPECT_TRUE(done.waitFor(21));
}

TEST(DispatchQueueTest, MainQueueRunsOnTheMainLoop) {
  std::atomic<bool> onMain{false};
  bool ran = false;
  std::thread([&] {
    DispatchQueue::main().async([&] {
      onMain = RunLoop::isMainThread();
      ran = true;
    });
  }).join();
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return ran; }, 5s));
  EXPECT_TRUE(onMain);

  bool later = false;
  DispatchQueue::main().after(0.01, [&] { later = true; });
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return later; }, 5s));

  int syncRan = 0;
  DispatchQueue::main().sync([&] { ++syncRan; });  // on the main thread: runs in place
  EXPECT_EQ(syncRan, 1);
}

TEST(DispatchQueueTest, ThrowingItemDoesNotStallASerialQueue) {
  DispatchQueue queue("throws", DispatchQueue::Kind::Serial);
  test::Signal done;
  queue.async([] { throw std::runtime_error("boom"); });
  queue.async([&] { done.add(); });
  EXPECT_TRUE(done.waitFor(1));
}

}  // namespace dispatch_queue_test
}  // namespace vexa
