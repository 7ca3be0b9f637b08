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
using testing::LoggedLine;
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
  for (const bool first : {false, true}) {
    for (const bool second : {false, true}) {
      const auto promise = TextPromise::Create();
      const auto settle = [&](bool resolves, const char* text) {
        resolves ? promise->resolve(text) : promise->reject(failure(text));
      };
      settle(first, "first");
      try {
        settle(second, "second");
        ADD_FAILURE();
      } catch (const TextPromise::ResolvedTwiceException& error) {
        EXPECT_STREQ(error.what(), "Promise was resolved or rejected more than once");
        EXPECT_NE(dynamic_cast<const std::logic_error*>(&error), nullptr);
      }
      EXPECT_EQ(outcome(*promise), "first");
    }
  }
}

TEST(Promise, SaysWhatNobodyLookedAt) {
  const RecordingLog log;
  { const auto lost = TextPromise::Create(); }
  TextPromise::Create()->reject(failure("two\nlines"));
  TextPromise::Create()->reject(std::make_exception_ptr(7));
  TextPromise::Create()->resolve("nobody needs to look at a value");
  const auto level = LogLevel::Error;
  EXPECT_THAT(log.lines(),
              ElementsAre(LoggedLine{level,
                                     "Promise destroyed without handling exception: "
                                     "Promise fell out of scope without resolving or rejecting"},
                          LoggedLine{level, "Promise destroyed without handling exception: two\\x0alines"},
                          LoggedLine{level, "Promise destroyed without handling unknown exception"}));
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

TEST(Promise, ALostPromiseTellsItsContinuations) {
  const RecordingLog log;
  std::string seen;
  TextPromise::Create()->then([&](TextPromise& lost) { seen = outcome(lost); });
  EXPECT_EQ(seen, "Promise fell out of scope without resolving or rejecting");
  EXPECT_THAT(log.texts(), IsEmpty()) << "the continuation has looked at the exception";
}

}  // namespace
}  // namespace zarn
