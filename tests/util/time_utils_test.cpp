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

TEST(TimeUtils, DayOfYearZeroIsTheFirstOfJanuaryAndNothingElse) {
  std::tm fields{};
  for (const auto& [dayOfYear, month, day, valid] :
       {std::tuple{1, 1, 1, true}, {0, 1, 1, false}, {0, 0, 1, true}, {0, 0, 2, false}}) {
    fields.tm_yday = dayOfYear, fields.tm_mon = month, fields.tm_mday = day;
    EXPECT_EQ(TimeUtils::validFields(fields), valid) << text(fields);
  }
}

TEST(TimeUtils, Converts) {
  std::tm out{};
  EXPECT_TRUE(TimeUtils::epochToUtc(1709210096, out));
  EXPECT_EQ(text(out), "2024-02-29 12:34:56 wd4 yd59 dst0");
  ASSERT_TRUE(TimeUtils::epochToLocal(1709210096, out));
  EXPECT_EQ(std::mktime(&out), 1709210096);  // whatever the time zone
}

TEST(TimeUtils, WhatIsNoUtcTimeIsRefused) {
  for (const std::int64_t seconds : {std::int64_t{0}, std::int64_t{-1}, kLatest}) {
    const RecordingLog log;
    std::tm out{};
    out.tm_mday = 1;
    EXPECT_FALSE(TimeUtils::epochToUtc(seconds, out));
    EXPECT_EQ(text(out), text(std::tm{}));
    EXPECT_THAT(log.texts(),
                ElementsAre("[Time] Failed to convert '" + std::to_string(seconds) + "' from epoch to GMT."));
    EXPECT_TRUE(seconds > 0 || !TimeUtils::epochToLocal(seconds, out));
  }
}

TEST(TimeUtils, LocalFallsBackToTheLibrary) {
  const std::string unknownYear = "Year is out of valid range: 1400..9999";
  for (const auto& [seconds, error] : {std::pair{253402300800 + 2 * 86400, unknownYear},  // 10000-01-03
                                       {2069000000000, unknownYear},  // a valid year modulo 2^16
                                       {kLatest, "tm unable to handle +infinity date value"}}) {
    const RecordingLog log;
    std::tm out{};
    EXPECT_FALSE(TimeUtils::epochToLocal(seconds, out)) << seconds;
    EXPECT_EQ(text(out), text(std::tm{}));
    EXPECT_THAT(log.texts(), ElementsAre("[Time] Falling back to boost::posix_time while converting '" +
                                             std::to_string(seconds) + "' from epoch.",
                                         "[Time] `boost::posix_time`: " + error));
  }
#ifdef _WIN32  // whose C library ends with the year 3000
  std::tm out{};
  EXPECT_TRUE(TimeUtils::epochToLocal(48288182400, out));
  EXPECT_EQ(text(out), "3500-03-12 00:00:00 wd1 yd70 dst-1");
#endif
}

}  // namespace
}  // namespace zarn::testing
