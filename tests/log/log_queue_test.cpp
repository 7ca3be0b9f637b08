#include "log/log_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;

class LogQueueTest : public ::testing::Test {
 protected:
  void push(std::string_view message) { queue_.push({LogLevel::Info, 7, {1000, 5}}, "[tag] ", message); }
  /// Takes what is there; long messages by their length.
  std::vector<std::string> take() {
    EXPECT_TRUE(queue_.take(batch_));
    std::vector<std::string> shown;
    for (const LogItem& item : batch_.items())
      shown.push_back(item.message.size() > 1000 ? std::to_string(item.message.size()) : item.message);
    return shown;
  }
  static std::string lost(int lines) {
    return "Log lines that were lost because the queue had no room for them: " + std::to_string(lines);
  }

  LogQueue queue_;
  LogQueue::Batch batch_;
};

TEST_F(LogQueueTest, IsBoundedInBytesAndTellsWhatItLost) {
  const std::string long_(1 << 20, 'l');
  for (int i = 0; i < 100; ++i) push(long_);
  push("fits");
  auto taken = take();
  ASSERT_EQ(taken.size(), 65U);
  EXPECT_EQ(taken[63], lost(37));
  EXPECT_EQ(taken[64], "[tag] fits");
  const LogItem& notice = batch_.items()[63];
  EXPECT_EQ(notice.level, LogLevel::Warn);
  EXPECT_EQ(notice.threadId, 7U);
  EXPECT_EQ(notice.time.seconds, 1000);
  EXPECT_EQ(notice.time.milliseconds, 5);

  push(long_);  // what the writer has taken is not written yet
  push("small");
  EXPECT_THAT(take(), ElementsAre(lost(1), "[tag] small"));
  push(long_);
  EXPECT_THAT(take(), ElementsAre(std::to_string(long_.size() + 6)));
}

TEST_F(LogQueueTest, BoundsShortLinesTooAndWhatTheirSlotsKeepOfLongerOnes) {
  constexpr std::size_t most = kMaximumQueueBytes / sizeof(LogItem);
  for (const auto& [longOnes, share] : {std::pair{0U, 1.0}, {60'000U, 0.55}}) {
    LogQueue queue;
    LogQueue::Batch batch;
    for (std::size_t i = 0; i < longOnes; ++i) queue.push({}, {}, std::string(500, 'l'));
    for (std::size_t i = 0; i < 2 + most * 5 / 4; ++i) {
      queue.push({}, {}, "");
      static_cast<void>(i < 2 && queue.take(batch));  // the slots of the long ones come back
    }
    ASSERT_TRUE(queue.take(batch));
    EXPECT_NEAR(static_cast<double>(batch.items().size()) / most, share, 0.03);
  }
}

}  // namespace
}  // namespace zarn::testing
