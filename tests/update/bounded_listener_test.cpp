#include "update/bounded_listener.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "support/recording_log.h"

namespace zarn {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kLimit = 300ms;

/// A listener of which each part can be made to hang. Outlives the threads left behind.
struct Stage {
  std::atomic<bool> listens{true}, listenEnds{true}, stopEnds{true}, busy{false}, told{false};
  std::atomic<std::uint32_t> stopAnswer{9};
};

class BoundedListenerTest : public ::testing::Test {
 protected:
  ~BoundedListenerTest() override { stage_->listenEnds = stage_->stopEnds = true; }

  static ListenerCalls calls(const std::shared_ptr<Stage>& stage) {
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
  std::future<std::uint32_t> run() {
    return std::async(std::launch::async, [this] { return listener_.run(); });
  }

  const testing::RecordingLog log_;
  const std::shared_ptr<Stage> stage_ = std::make_shared<Stage>();
  BoundedListener listener_{calls(stage_), kLimit};
};

class WhateverHangs : public BoundedListenerTest, public ::testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(All, WhateverHangs, ::testing::Range(0, 4));
TEST_P(WhateverHangs, Ends) {
  stage_->listenEnds = (GetParam() & 1) == 0;
  stage_->stopEnds = (GetParam() & 2) == 0;
  auto running = run();
  const auto start = Clock::now();
  EXPECT_EQ(listener_.stop(), stage_->stopEnds ? 9U : BoundedListener::kTimedOut);
  EXPECT_EQ(running.get(), stage_->listenEnds ? 7U : 0U);
  EXPECT_LT(Clock::now() - start, 10 * kLimit);
}

TEST_F(BoundedListenerTest, CutsNoWorkShort) {
  stage_->busy = true;
  auto running = run();
  EXPECT_EQ(listener_.stop(), 9U);
  EXPECT_EQ(running.wait_for(3 * kLimit), std::future_status::timeout);
  stage_->busy = false;
  running.get();
}

TEST_F(BoundedListenerTest, AStopThatComesBeforeItListensIsNotLostAndALaterOneDoesNotWait) {
  stage_->listens = false;
  stage_->stopAnswer = 0;
  auto running = run();
  auto stopping = std::async(std::launch::async, [this] { return listener_.stop(); });
  EXPECT_EQ(stopping.wait_for(kLimit / 4), std::future_status::timeout);
  stage_->listens = true;
  EXPECT_EQ(stopping.get(), 0U);
  EXPECT_EQ(running.get(), 7U);
  stage_->listens = false;
  EXPECT_EQ(listener_.stop(), BoundedListener::kNotListening) << "tried again, and given up at the limit";
}

}  // namespace
}  // namespace zarn
