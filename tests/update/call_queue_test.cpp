#include "update/call_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace zarn {
namespace {

using namespace std::chrono_literals;
using Refusal = CallQueue::Refusal;

/// Calls that wait on threads of their own, and the order in which they got their turns.
class CallQueueTest : public ::testing::Test {
 protected:
  void TearDown() override {
    queue_->close();
    current_.reset();
    joinAll();
  }

  /// A queue in which one call runs already.
  void fill(CallQueue::Limits limits) {
    queue_ = std::make_unique<CallQueue>(limits);
    current_.emplace(queue_->enter("first", {}));
  }
  /// Begins a call and returns when it waits, or has been refused.
  void call(const std::string& owner, CallQueue::IsGone isGone = {}) {
    const std::size_t before = queue_->waiting();
    const std::size_t refusedBefore = refused().size();
    threads_.emplace_back([this, owner, isGone] {
      const auto turn = queue_->enter(owner, isGone);
      const MutexLock lock(mutex_);
      if (turn) {
        served_ += owner;
      } else {
        refused_ += owner + std::to_string(static_cast<int>(turn.refusal()));
      }
    });
    while (queue_->waiting() <= before && refused().size() <= refusedBefore) std::this_thread::sleep_for(1ms);
  }
  /// Owner and reason of each, in the order in which they were told.
  std::string refused() {
    const MutexLock lock(mutex_);
    return refused_;
  }
  std::string served() {
    const MutexLock lock(mutex_);
    return served_;
  }
  void joinAll() {
    for (auto& thread : threads_) thread.join();
    threads_.clear();
  }
  /// Lets all that wait have their turns, one after the other.
  void serveAll() {
    current_.reset();
    joinAll();
  }

  Mutex mutex_;
  std::string served_ ZARN_GUARDED_BY(mutex_);
  std::string refused_ ZARN_GUARDED_BY(mutex_);
  std::unique_ptr<CallQueue> queue_;
  std::optional<CallQueue::Turn> current_;
  std::vector<std::thread> threads_;
};

constexpr const char* kFull = "1";
constexpr const char* kGone = "2";
constexpr const char* kStopping = "3";

TEST_F(CallQueueTest, OwnersTakeTurnsAndEachOwnersCallsKeepTheirOrder) {
  fill({.running = 1, .waiting = 16});
  for (const char* owner : {"a", "a", "a", "a", "b", "b", "c"}) call(owner);
  serveAll();
  EXPECT_EQ(served(), "abcabaa");
}

TEST_F(CallQueueTest, NobodyHoldsMoreThanHalfWhileOthersAsk) {
  fill({.running = 1, .waiting = 4});
  for (int i = 0; i < 4; ++i) call("a");
  call("a");
  EXPECT_EQ(refused(), std::string("a") + kFull) << "alone, all places but no more";
  call("b");  // takes the place of the newest of a's
  call("b");
  call("b");
  EXPECT_EQ(refused(), std::string("a") + kFull + "a" + kFull + "a" + kFull + "b" + kFull);
  EXPECT_EQ(queue_->waiting(), 4U);
  call("c");  // two who have half each keep nobody else out
  serveAll();
  EXPECT_EQ(served(), "abca");
}

TEST_F(CallQueueTest, WhoIsGoneGivesThePlaceUpAndGetsNoTurn) {
  std::atomic<bool> gone{false};
  fill({.running = 1, .waiting = 2});
  call("a", [&] { return gone.load(); });
  call("a", [&] { return gone.load(); });
  gone = true;
  call("b", [] { return true; });
  while (refused().size() < 4) std::this_thread::sleep_for(1ms);
  EXPECT_EQ(queue_->waiting(), 1U) << "b has a place, since a's were given up";
  serveAll();
  EXPECT_EQ(served(), "");
  EXPECT_EQ(refused(), std::string("a") + kGone + "a" + kGone + "b" + kGone);
}

TEST_F(CallQueueTest, ClosingEndsAllThatWaitAndNotWhatRuns) {
  fill({.running = 1, .waiting = 16});
  for (int i = 0; i < 3; ++i) call("a");
  queue_->close();
  joinAll();
  call("b");
  joinAll();
  EXPECT_EQ(refused(), std::string("a") + kStopping + "a" + kStopping + "a" + kStopping + "b" + kStopping);
  EXPECT_FALSE(queue_->waitUntilIdle(10ms));
  current_.reset();
  EXPECT_TRUE(queue_->waitUntilIdle(0ms));
}

TEST(CallQueue, RunsNoMoreThanItsLimitAndServesEverybody) {
  CallQueue queue({.running = 8, .waiting = 512});
  std::atomic<int> running{0};
  std::atomic<int> most{0};
  std::atomic<int> served{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 32; ++thread) {
    threads.emplace_back([&, owner = std::to_string(thread % 3)] {
      for (int i = 0; i < 60; ++i) {
        const auto turn = queue.enter(owner, {});
        if (!turn) continue;
        int seen = most;
        const int now = ++running;
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::yield();
        --running;
        ++served;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(served, 32 * 60);
  EXPECT_LE(most, 8);
}

}  // namespace
}  // namespace zarn
