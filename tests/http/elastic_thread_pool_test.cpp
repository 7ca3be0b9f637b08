#include "http/elastic_thread_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

#include "os/process.h"
#include "support/recording_log.h"

namespace zarn::testing {
namespace {

using namespace std::chrono_literals;

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
  EXPECT_THAT(log.texts(), ::testing::ElementsAre(
                               "Thread: Couldn't add a new thread to the pool of size 0: no\\x0athreads",
                               uncaught + formatPrintf("%04d: broken\\x0d", currentThreadId())));
}

TEST(ElasticThreadPool, LosesNoTaskWhileWorkersComeAndGo) {
  std::atomic<int> ran{0};
  ElasticThreadPool pool(0, 3, 1ms);  // workers leave in nearly every pause between posts
  std::vector<std::thread> posters;
  for (int i = 0; i < 4; ++i) {
    posters.emplace_back([&] {
      for (int task = 0; task < 500; ++task) {
        pool.post([&] { ++ran; });
        if (task % 25 == 0) std::this_thread::sleep_for(2ms);
      }
    });
  }
  for (auto& poster : posters) poster.join();
  EXPECT_TRUE(eventually([&] { return ran == 4 * 500; })) << ran;
  EXPECT_LE(pool.threadCount(), 3U);
}

TEST(ElasticThreadPool, ATaskThatBlocksHoldsNoOtherUpWhileAWorkerSleeps) {
  ElasticThreadPool pool(2, 2);
  for (int round = 0; round < 3000; ++round) {
    std::promise<void> first;
    std::promise<void> second;
    pool.post([&] { second.get_future().wait(), first.set_value(); });
    if (round % 3 == 0) std::this_thread::yield();  // the first worker is on its way, or there
    pool.post([&] { second.set_value(); });
    ASSERT_EQ(first.get_future().wait_for(10s), std::future_status::ready) << round;
  }
}

}  // namespace
}  // namespace zarn::testing
