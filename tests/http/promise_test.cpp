#include "http/promise.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "support/recording_log.h"

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;
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
