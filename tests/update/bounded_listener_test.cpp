#include "update/bounded_listener.h"

#include <gtest/gtest.h>

#include <atomic>
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
  std::atomic<bool> listenEnds{true};
  std::atomic<bool> stopEnds{true};
  std::atomic<bool> busy{false};
  std::atomic<bool> told{false};

  [[nodiscard]] static ListenerCalls calls(const std::shared_ptr<Stage>& stage) {
    return {.listen = [stage]() -> std::uint32_t {
              while (!stage->told || !stage->listenEnds) std::this_thread::sleep_for(1ms);
              return 7;
            },
            .stopListening = [stage]() -> std::uint32_t {
              stage->told = true;
              while (!stage->stopEnds) std::this_thread::sleep_for(1ms);
              return 9;
            },
            .waitUntilIdle =
                [stage](std::chrono::milliseconds limit) {
                  if (stage->busy) std::this_thread::sleep_for(limit / 10);
                  return !stage->busy;
                }};
  }
};

TEST(BoundedListener, EndsWhateverHangs) {
  for (const bool listenEnds : {true, false}) {
    for (const bool stopEnds : {true, false}) {
      SCOPED_TRACE(listenEnds ? "listen ends" : "listen hangs");
      SCOPED_TRACE(stopEnds ? "stop ends" : "stop hangs");
      testing::RecordingLog log;
      const auto stage = std::make_shared<Stage>();
      stage->listenEnds = listenEnds;
      stage->stopEnds = stopEnds;
      BoundedListener listener(Stage::calls(stage), kLimit);
      std::uint32_t status = 1;
      std::thread running([&] { status = listener.run(); });
      const auto start = Clock::now();
      EXPECT_EQ(listener.stop(), stopEnds ? 9U : BoundedListener::kTimedOut);
      running.join();
      EXPECT_EQ(status, listenEnds ? 7U : 0U);
      EXPECT_LT(Clock::now() - start, 10 * kLimit);
      stage->listenEnds = stage->stopEnds = true;
    }
  }
}

TEST(BoundedListener, CutsNoWorkShort) {
  testing::RecordingLog log;
  const auto stage = std::make_shared<Stage>();
  stage->listenEnds = false;
  stage->busy = true;
  BoundedListener listener(Stage::calls(stage), kLimit);
  std::atomic<bool> ended{false};
  std::thread running([&] {
    listener.run();
    ended = true;
  });
  EXPECT_EQ(listener.stop(), 9U);
  std::this_thread::sleep_for(3 * kLimit);
  EXPECT_FALSE(ended);
  stage->busy = false;
  running.join();
  stage->listenEnds = true;
}

}  // namespace
}  // namespace zarn
