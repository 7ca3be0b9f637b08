// What requests run on, and what they are waited for by.
#include "http/elastic_thread_pool.h"
#include "http/promise.h"
#include "support/test.h"

namespace zarn::testing {
namespace {

/// Sleeps until `condition` holds, at most ten seconds.
template <typename Condition>
bool eventually(Condition condition) {
  for (int i = 0; i < 1000 && !condition(); ++i) std::this_thread::sleep_for(10ms);
  return condition();
}

TEST(ElasticThreadPool, GrowsByOneWorkerAPostAndShrinksAgain) {
  for (const std::size_t lowerBound : {0U, 2U}) {
    ElasticThreadPool pool(lowerBound, 3, 20ms);
    for (int round = 0; round < 2; ++round) {
      std::promise<void> gate;
      const auto opened = gate.get_future().share();
      const std::size_t idle = pool.threadCount();
      for (const std::size_t posted : {1U, 2U, 3U, 4U}) {
        pool.post([opened] { opened.wait(); });
        EXPECT_EQ(pool.threadCount(), std::min<std::size_t>(std::max(posted, idle), 3));
      }
      gate.set_value();
      EXPECT_TRUE(eventually([&] { return pool.threadCount() == lowerBound; })) << pool.threadCount();
      std::this_thread::sleep_for(60ms);
      EXPECT_EQ(pool.threadCount(), lowerBound);
    }
  }
}

TEST(ElasticThreadPool, ATaskThatThrowsAndAThreadThatCannotBeMadeAreReportedAndLoseNothing) {
  const RecordingLog log;
  std::atomic<int> ran{0};
  int starts = 0;
  {
    ElasticThreadPool pool(1, 8, 10s, [&] {
      if (++starts == 1) throw std::runtime_error("no\nthreads");
    });
    pool.post([&] { ++ran; });  // nobody to run it yet
    EXPECT_EQ(pool.threadCount(), 0U);
    pool.post([] { throw std::runtime_error("broken\r"); });
    EXPECT_EQ(pool.threadCount(), 1U);
    EXPECT_TRUE(eventually([&] { return log.lines().size() == 2; }));
    pool.post([&] { ++ran; });
  }
  EXPECT_EQ(ran, 2);
  const std::string uncaught = "Thread: Uncaught exception running async task which was spawned by thread ";
  EXPECT_THAT(log.texts(),
              ElementsAre("Thread: Couldn't add a new thread to the pool of size 0: no\\x0athreads",
                          uncaught + formatPrintf("%04d: broken\\x0d", currentThreadId())));
}

TEST(ElasticThreadPool, LosesNoTaskWhileWorkersComeAndGo) {
  std::atomic<int> ran{0};
  ElasticThreadPool pool(0, 3, 1ms);  // workers leave in nearly every pause between posts
  for (int task = 0; task < 2000; ++task) {
    pool.post([&] { ++ran; });
    if (task % 10 == 0) std::this_thread::sleep_for(2ms);
  }
  EXPECT_TRUE(eventually([&] { return ran == 2000; })) << ran;
}

TEST(ElasticThreadPool, ATaskThatBlocksHoldsNoOtherUpWhileAWorkerSleeps) {
  ElasticThreadPool pool(2, 2);
  for (int round = 0; round < 3000; ++round) {
    std::promise<void> first, second;
    pool.post([&] { second.get_future().wait(), first.set_value(); });
    if (round % 3 == 0) std::this_thread::yield();  // the first worker is on its way, or there
    pool.post([&] { second.set_value(); });
    ASSERT_EQ(first.get_future().wait_for(10s), std::future_status::ready) << round;
  }
}

using TextPromise = Promise<std::string>;

auto failure(const char* text) {
  return std::make_exception_ptr(std::runtime_error(text));
}

/// The value, or the exception's message.
std::string outcome(TextPromise& promise) {
  try {
    return promise.wait();
  } catch (const std::exception& error) {
    return error.what();
  }
}

TEST(Promise, SettlesOnceAndWakesEveryWaiter) {
  const RecordingLog log;
  for (const bool rejects : {false, true}) {
    const auto promise = TextPromise::Create();
    std::vector<std::string> seen(3);
    std::vector<std::thread> waiters;
    for (auto& text : seen) waiters.emplace_back([&] { text = outcome(*promise); });
    EXPECT_THROW(promise->reject(nullptr), std::invalid_argument);
    rejects ? promise->reject(failure("first")) : promise->resolve("first");
    for (auto& waiter : waiters) waiter.join();
    EXPECT_THROW(promise->resolve("second"), TextPromise::ResolvedTwiceException);
    EXPECT_THROW(promise->reject(failure("third")), TextPromise::ResolvedTwiceException);
    EXPECT_THAT(seen, ElementsAre("first", "first", "first"));
  }
  EXPECT_THAT(log.texts(), ElementsAre());  // the exception has been thrown to somebody
}

TEST(Promise, SaysWhatNobodyLookedAt) {
  const RecordingLog log;
  { const auto lost = TextPromise::Create(); }
  TextPromise::Create()->reject(failure("two\nlines"));
  TextPromise::Create()->resolve("nobody needs to look at a value");
  const std::string start = "Promise destroyed without handling exception: ";
  EXPECT_THAT(log.texts(), ElementsAre(start + "Promise fell out of scope without resolving or rejecting",
                                       start + "two\\x0alines"));
}

TEST(Promise, ContinuationsRunOnceSettledAndMayDropTheOwner) {
  const RecordingLog log;
  std::vector<std::string> seen;
  auto promise = TextPromise::Create();
  TextPromise& unowned = *promise;
  promise->then([&](TextPromise&) { throw std::runtime_error("broken"); });
  promise->then([&](TextPromise& settled) {
    settled.then([&](TextPromise& late) { seen.push_back("late " + outcome(late)); });
    promise.reset();
    seen.push_back(outcome(settled));
  });
  unowned.resolve("value");
  EXPECT_THAT(seen, ElementsAre("late value", "value"));
  EXPECT_THAT(log.texts(), ElementsAre("Promise continuation failed: broken"));
}

}  // namespace
}  // namespace zarn::testing
