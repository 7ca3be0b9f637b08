#include "http/promise.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "support/recording_log.h"

namespace zarn {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::RecordingLog;
using TextPromise = Promise<std::string>;

std::exception_ptr failure(const char* text) {
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

TEST(Promise, WakesEveryWaiterWithItsOutcome) {
  const RecordingLog log;
  for (const bool rejects : {false, true}) {
    const auto promise = TextPromise::Create();
    std::vector<std::string> seen(3);
    std::vector<std::thread> waiters;
    for (auto& text : seen) waiters.emplace_back([&] { text = outcome(*promise); });
    rejects ? promise->reject(failure("outcome")) : promise->resolve("outcome");
    for (auto& waiter : waiters) waiter.join();
    EXPECT_THAT(seen, ElementsAre("outcome", "outcome", "outcome"));
    EXPECT_EQ(outcome(*promise), "outcome") << "a late waiter returns at once";
  }
  EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(Promise, SettlesOnceOnly) {
  for (const bool rejectsFirst : {false, true}) {
    const auto promise = TextPromise::Create();
    rejectsFirst ? promise->reject(failure("first")) : promise->resolve("first");
    EXPECT_THROW(promise->resolve("second"), TextPromise::ResolvedTwiceException);
    EXPECT_THROW(promise->reject(failure("third")), TextPromise::ResolvedTwiceException);
    EXPECT_EQ(outcome(*promise), "first");
  }
}

TEST(Promise, SaysWhatNobodyLookedAt) {
  const RecordingLog log(LogLevel::Error);
  { const auto lost = TextPromise::Create(); }
  TextPromise::Create()->reject(failure("two\nlines"));
  TextPromise::Create()->reject(std::make_exception_ptr(7));
  TextPromise::Create()->resolve("nobody needs to look at a value");
  const std::string start = "Promise destroyed without handling ";
  const std::string lost = "Promise fell out of scope without resolving or rejecting";
  EXPECT_THAT(log.texts(), ElementsAre(start + "exception: " + lost, start + "exception: two\\x0alines",
                                       start + "unknown exception"));
  std::string seen;
  TextPromise::Create()->then([&](TextPromise& promise) { seen = outcome(promise); });
  EXPECT_EQ(seen, lost) << "and its continuation has looked at it";
  EXPECT_EQ(log.texts().size(), 3U);
}

TEST(Promise, ContinuationsRunAfterSettlementWithoutTheLock) {
  const RecordingLog log;
  std::vector<std::string> seen;
  const auto promise = TextPromise::Create();
  promise->then([&](TextPromise& settled) { seen.push_back("1 " + settled.wait()); });
  promise->then([&](TextPromise&) { throw std::runtime_error("broken"); });
  promise->then([&](TextPromise& settled) { seen.push_back("2 " + settled.wait()); });
  EXPECT_THAT(seen, IsEmpty());
  promise->resolve("value");
  promise->then([&](TextPromise& settled) { seen.push_back("late " + settled.wait()); });
  EXPECT_THAT(seen, ElementsAre("1 value", "2 value", "late value"));
  EXPECT_THAT(log.texts(), ElementsAre("Promise continuation failed: broken"));
}

TEST(Promise, LivesThroughAContinuationThatDropsItsOwner) {
  auto promise = TextPromise::Create();
  std::string seen;
  promise->then([&](TextPromise& settled) {
    promise.reset();
    seen = settled.wait();
  });
  TextPromise& reference = *promise;
  reference.resolve("value");
  EXPECT_EQ(seen, "value");
}

}  // namespace
}  // namespace zarn
