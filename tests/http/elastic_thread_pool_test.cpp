#include "http/elastic_thread_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

#include "support/recording_log.h"
#include "util/system_error.h"

namespace zarn {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::LoggedLine;
using testing::RecordingLog;

/// Sleeps until `condition` holds, at most ten seconds.
template <typename Condition>
bool eventually(Condition condition) {
  for (int i = 0; i < 1000 && !condition(); ++i) std::this_thread::sleep_for(10ms);
  return condition();
}

/// Holds its tasks back until it is opened; outlives the pool they run in.
struct Gate {
  std::function<void()> task() {
    return [this] {
      opened.wait();
      ++passed;
    };
  }
  void open() { promise.set_value(); }
  std::promise<void> promise;
  std::shared_future<void> opened = promise.get_future().share();
  std::atomic<int> passed{0};
};

TEST(ElasticThreadPool, GrowsByOneWorkerAPostUpToItsBound) {
  Gate gate;
  {
    ElasticThreadPool pool(1, 3, 10s);
    for (const std::size_t expected : {1U, 2U, 3U, 3U, 3U}) {
      pool.post(gate.task());
      EXPECT_EQ(pool.threadCount(), expected);
    }
    gate.open();
  }
  EXPECT_EQ(gate.passed, 5) << "the destructor finishes what was posted";
}

TEST(ElasticThreadPool, ShrinksToItsLowerBoundAndGrowsAgain) {
  for (const std::size_t lowerBound : {0U, 2U}) {
    Gate gates[2];
    ElasticThreadPool pool(lowerBound, 4, 20ms);
    for (Gate& gate : gates) {
      for (int i = 0; i < 4; ++i) pool.post(gate.task());
      EXPECT_EQ(pool.threadCount(), 4U);
      gate.open();
      EXPECT_TRUE(eventually([&] { return pool.threadCount() == lowerBound; })) << pool.threadCount();
      std::this_thread::sleep_for(60ms);
      EXPECT_EQ(pool.threadCount(), lowerBound);
    }
  }
}

TEST(ElasticThreadPool, IdleWorkersDecideAgainWhenItIsTheirTurn) {
  // Four workers become idle and decide to leave while the start of the fifth holds the lock.
  Gate gate;
  int starts = 0;
  ElasticThreadPool pool(2, 8, 20ms, [&] {
    if (++starts != 5) return;
    gate.open();
    std::this_thread::sleep_for(200ms);
  });
  for (int i = 0; i < 5; ++i) pool.post(gate.task());
  EXPECT_TRUE(eventually([&] { return pool.threadCount() <= 2; }));
  std::this_thread::sleep_for(60ms);
  EXPECT_EQ(pool.threadCount(), 2U);
}

TEST(ElasticThreadPool, ReportsATaskThatThrowsAndGoesOn) {
  const RecordingLog log;
  std::promise<void> ran;
  {
    ElasticThreadPool pool(1, 1);
    pool.post([] { throw std::runtime_error("broken\r"); });
    pool.post([] { throw 7; });
    pool.post([&] { ran.set_value(); });
    EXPECT_EQ(ran.get_future().wait_for(10s), std::future_status::ready);
    EXPECT_EQ(pool.threadCount(), 1U);
  }
  const std::string start = formatPrintf(
      "Thread: Uncaught exception running async task which was spawned by thread %04d: ", currentThreadId());
  EXPECT_THAT(log.lines(), ElementsAre(LoggedLine{LogLevel::Error, start + "broken\\x0d"},
                                       LoggedLine{LogLevel::Error, start + "unknown"}));
}

TEST(ElasticThreadPool, AThreadThatCannotBeMadeLosesNoTask) {
  const RecordingLog log;
  Gate gate;
  int starts = 0;
  ElasticThreadPool pool(1, 8, 10s, [&] {
    if (++starts != 2) throw std::runtime_error("no threads");
  });
  for (const std::size_t expected : {0U, 1U, 1U}) {
    pool.post(gate.task());
    EXPECT_EQ(pool.threadCount(), expected);
  }
  gate.open();
  EXPECT_TRUE(eventually([&] { return gate.passed == 3; }));
  const std::string text = "Thread: Couldn't add a new thread to the pool of size ";
  EXPECT_THAT(log.lines(), ElementsAre(LoggedLine{LogLevel::Error, text + "0: no threads"},
                                       LoggedLine{LogLevel::Error, text + "1: no threads"}));
}

TEST(ElasticThreadPool, LosesNoTaskWhileWorkersComeAndGo) {
  std::atomic<int> ran{0};
  // Workers leave in nearly every pause between posts.
  ElasticThreadPool pool(0, 3, 1ms);
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

}  // namespace
}  // namespace zarn
