#include "util/time_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "support/recording_log.h"

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;

constexpr auto kLatest = std::numeric_limits<std::int64_t>::max();

std::string text(const std::tm& t) {
  return formatPrintf("%04d-%02d-%02d %02d:%02d:%02d wd%d yd%d dst%d", t.tm_year + 1900, t.tm_mon + 1,
                      t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday, t.tm_yday, t.tm_isdst);
}

TEST(TimeUtils, Converts) {
  std::tm out{};
  EXPECT_TRUE(TimeUtils::epochToUtc(1709210096, out));
  EXPECT_EQ(text(out), "2024-02-29 12:34:56 wd4 yd59 dst0");
  ASSERT_TRUE(TimeUtils::epochToLocal(1709210096, out));
  EXPECT_EQ(std::mktime(&out), 1709210096);  // whatever the time zone
#ifdef _WIN32                                // whose C library ends with the year 3000
  EXPECT_TRUE(TimeUtils::epochToLocal(48288182400, out));
  EXPECT_EQ(text(out), "3500-03-12 00:00:00 wd1 yd70 dst-1");
#endif
}

TEST(TimeUtils, WhatIsNoTimeIsRefused) {
  const RecordingLog log(LogLevel::Error);
  std::tm out{};
  out.tm_mday = 1;
  EXPECT_FALSE(TimeUtils::epochToUtc(kLatest, out));
  EXPECT_EQ(text(out), text(std::tm{}));
  const std::string unknownYear = "[Time] `boost::posix_time`: Year is out of valid range: 1400..9999";
  EXPECT_FALSE(TimeUtils::epochToLocal(2069000000000, out));  // a valid year modulo 2^16
  EXPECT_FALSE(TimeUtils::epochToLocal(kLatest, out));
  EXPECT_FALSE(TimeUtils::epochToLocal(0, out));
  EXPECT_THAT(log.texts(),
              ElementsAre("[Time] Failed to convert '9223372036854775807' from epoch to GMT.", unknownYear,
                          "[Time] `boost::posix_time`: tm unable to handle +infinity date value"));
}

}  // namespace
}  // namespace zarn::testing
