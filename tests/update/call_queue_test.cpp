#include "update/call_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace zarn {
namespace {

using namespace std::chrono_literals;

/// A queue in which one call runs already, and calls that wait on threads of their own.
struct Calls {
  explicit Calls(std::size_t waiting) : queue({.running = 1, .waiting = waiting}) {
    current.emplace(queue.enter("first", {}));
  }
  ~Calls() {
    queue.close();
    serve();
  }
  /// A call of each owner in turn; returns when the last one waits or has been refused.
  void call(const std::string& owners, const CallQueue::IsGone& isGone = {}) {
    for (const char owner : owners) {
      const std::size_t waiting = queue.waiting();
      const std::size_t before = refused().size();
      threads.emplace_back([this, owner, isGone] {
        const auto turn = queue.enter({owner}, isGone);
        const MutexLock lock(mutex);
        if (turn)
          servedOwners += owner;
        else
          (refusedOwners += owner) += std::to_string(static_cast<int>(turn.refusal()));
      });
      while (queue.waiting() <= waiting && refused().size() <= before) std::this_thread::sleep_for(1ms);
    }
  }
  /// Owner and number of the reason of each call without a turn, as they were told.
  std::string refused() {
    const MutexLock lock(mutex);
    return refusedOwners;
  }
  /// Lets all that wait have their turns, one after the other, and says whose they were.
  std::string serve() {
    current.reset();
    for (auto& thread : threads) thread.join();
    threads.clear();
    const MutexLock lock(mutex);
    return servedOwners;
  }

  Mutex mutex;
  std::string servedOwners ZARN_GUARDED_BY(mutex), refusedOwners ZARN_GUARDED_BY(mutex);
  CallQueue queue;
  std::optional<CallQueue::Turn> current;
  std::vector<std::thread> threads;
};

TEST(CallQueue, GivesTurnsRoundAndNobodyMoreThanHalfThePlacesWhileOthersAsk) {
  const struct {
    std::size_t places;
    const char *calls, *refused, *served;
  } cases[] = {{16, "aaaabbc", "", "abcabaa"},
               {4, "aaaaa", "a1", "aaaa"},           // alone all places, but no more
               {4, "aaaaabbb", "a1a1a1b1", "abab"},  // b takes the places of a's newest
               {4, "bbab", "b1", "bab"},             // no more than half, though a place is free
               {4, "aabcb", "b1", "abca"},           // one more than b has is not enough to lose one
               {4, "aaaabbc", "a1a1b1", "abca"}};    // two with half each keep nobody else out
  for (const auto& [places, owners, refused, served] : cases) {
    Calls calls(places);
    calls.call(owners);
    EXPECT_EQ(calls.serve(), served) << owners;
    EXPECT_EQ(calls.refused(), refused) << owners;
  }
}

TEST(CallQueue, WhoIsGoneGivesThePlaceUpAndGetsNoTurn) {
  std::atomic<bool> gone{false};
  Calls calls(2);
  calls.call("aa", [&] { return gone.load(); });
  gone = true;
  calls.call("b", [] { return true; });
  while (calls.refused().size() < 4) std::this_thread::sleep_for(1ms);
  EXPECT_EQ(calls.queue.waiting(), 1U) << "b has a place, since a's were given up";
  EXPECT_EQ(calls.serve(), "");
  EXPECT_EQ(calls.refused(), "a2a2b2");
}

TEST(CallQueue, ClosingEndsAllThatWaitAndNotWhatRuns) {
  Calls calls(16);
  calls.call("aaa");
  calls.queue.close();
  calls.call("b");
  while (calls.refused().size() < 8) std::this_thread::sleep_for(1ms);
  EXPECT_FALSE(calls.queue.waitUntilIdle(10ms));
  EXPECT_EQ(calls.serve(), "");
  EXPECT_EQ(std::ranges::count(calls.refused(), '3'), 4);
  EXPECT_TRUE(calls.queue.waitUntilIdle(0ms));
}

TEST(CallQueue, RunsNoMoreThanItsLimitAndServesEverybody) {
  CallQueue queue({.running = 8, .waiting = 512});
  std::atomic<int> running{0}, most{0}, served{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 32; ++thread) {
    threads.emplace_back([&, owner = std::to_string(thread % 3)] {
      for (int i = 0; i < 60; ++i) {
        const auto turn = queue.enter(owner, {});
        int seen = most;
        const int now = ++running;
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::yield();
        --running;
        served += turn ? 1 : 0;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(served, 32 * 60);
  EXPECT_LE(most, 8);
}

}  // namespace
}  // namespace zarn
