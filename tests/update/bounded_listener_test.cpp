#include "update/bounded_listener.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>

#include "support/recording_log.h"

namespace zarn {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kLimit = 200ms;

/// A listener of which each part can be made to hang. Outlives the threads left behind.
struct Stage {
  std::atomic<bool> listens{true}, listenEnds{false}, stopEnds{true}, busy{false}, told{false};

  std::atomic<std::uint32_t> stopAnswer{9};

  [[nodiscard]] static ListenerCalls calls(const std::shared_ptr<Stage>& stage) {
    return {.listen = [stage]() -> std::uint32_t {
              while (!stage->told || !stage->listenEnds) std::this_thread::sleep_for(1ms);
              return 7;
            },
            .stopListening = [stage]() -> std::uint32_t {
              if (!stage->listens) return BoundedListener::kNotListening;
              stage->told = true;
              while (!stage->stopEnds) std::this_thread::sleep_for(1ms);
              return stage->stopAnswer;
            },
            .waitUntilIdle =
                [stage](std::chrono::milliseconds limit) {
                  if (stage->busy) std::this_thread::sleep_for(limit / 10);
                  return !stage->busy;
                }};
  }
};

TEST(BoundedListener, EndsWhateverHangs) {
  for (const auto& [listenEnds, stopEnds] :
       {std::pair{true, true}, {true, false}, {false, true}, {false, false}}) {
    SCOPED_TRACE(std::string("ends: ") + (listenEnds ? "listen " : "") + (stopEnds ? "stop" : ""));
    const testing::RecordingLog log;
    const auto stage = std::make_shared<Stage>();
    stage->listenEnds = listenEnds;
    stage->stopEnds = stopEnds;
    BoundedListener listener(Stage::calls(stage), kLimit);
    auto running = std::async(std::launch::async, [&] { return listener.run(); });
    const auto start = Clock::now();
    EXPECT_EQ(listener.stop(), stopEnds ? 9U : BoundedListener::kTimedOut);
    EXPECT_EQ(running.get(), listenEnds ? 7U : 0U);
    EXPECT_LT(Clock::now() - start, 10 * kLimit);
    stage->listenEnds = stage->stopEnds = true;
  }
}

TEST(BoundedListener, CutsNoWorkShort) {
  const testing::RecordingLog log;
  const auto stage = std::make_shared<Stage>();
  stage->busy = true;
  BoundedListener listener(Stage::calls(stage), kLimit);
  auto running = std::async(std::launch::async, [&] { return listener.run(); });
  EXPECT_EQ(listener.stop(), 9U);
  EXPECT_EQ(running.wait_for(3 * kLimit), std::future_status::timeout);
  stage->busy = false;
  running.get();
  stage->listenEnds = true;
}

TEST(BoundedListener, AStopThatComesBeforeItListensIsNotLostAndALaterOneDoesNotWait) {
  const testing::RecordingLog log;
  const auto stage = std::make_shared<Stage>();
  stage->listens = false;
  stage->listenEnds = true;
  stage->stopAnswer = 0;
  BoundedListener listener(Stage::calls(stage));
  auto running = std::async(std::launch::async, [&] { return listener.run(); });
  auto stopping = std::async(std::launch::async, [&] { return listener.stop(); });
  EXPECT_EQ(stopping.wait_for(100ms), std::future_status::timeout);
  stage->listens = true;
  EXPECT_EQ(stopping.get(), 0U);
  EXPECT_EQ(running.get(), 7U);
  stage->listens = false;
  const auto start = Clock::now();
  EXPECT_EQ(listener.stop(), BoundedListener::kNotListening);
  EXPECT_LT(Clock::now() - start, 1s) << "tried again for two";
}

}  // namespace
}  // namespace zarn
