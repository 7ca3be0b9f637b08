#include "util/time_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "support/recording_log.h"

namespace zarn {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LoggedLine;
using testing::RecordingLog;

std::string text(const std::tm& t) {
  return formatPrintf("%04d-%02d-%02d %02d:%02d:%02d wd%d yd%d dst%d", t.tm_year + 1900, t.tm_mon + 1,
                      t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday, t.tm_yday, t.tm_isdst);
}

/// Every field 1, to show through when a conversion leaves it alone.
std::tm ones() {
  std::tm fields{};
  fields.tm_sec = fields.tm_min = fields.tm_hour = fields.tm_mday = fields.tm_mon = fields.tm_year = 1;
  fields.tm_wday = fields.tm_yday = fields.tm_isdst = 1;
  return fields;
}

TEST(TimeUtils, DayOfYearZeroIsTheFirstOfJanuaryAndNothingElse) {
  std::tm fields = ones();
  EXPECT_TRUE(TimeUtils::validFields(fields));
  fields.tm_yday = 0;
  EXPECT_FALSE(TimeUtils::validFields(fields));
  fields.tm_mon = 0;
  EXPECT_TRUE(TimeUtils::validFields(fields));
  fields.tm_mday = 2;
  EXPECT_FALSE(TimeUtils::validFields(fields));
}

TEST(TimeUtils, WhatIsNoUtcTimeIsRefused) {
  for (const std::int64_t seconds :
       {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::max()}) {
    const RecordingLog log;
    std::tm out = ones();
    EXPECT_FALSE(TimeUtils::epochToUtc(seconds, out));
    EXPECT_EQ(text(out), text(std::tm{}));
    EXPECT_TRUE(seconds > 0 || !TimeUtils::epochToLocal(seconds, out));
    EXPECT_THAT(log.lines(), ElementsAre(LoggedLine{LogLevel::Error, "[Time] Failed to convert '" +
                                                                         std::to_string(seconds) +
                                                                         "' from epoch to GMT."}));
  }
}

TEST(TimeUtils, Converts) {
  const RecordingLog log;
  std::tm out = ones();
  EXPECT_TRUE(TimeUtils::epochToUtc(1709210096, out));
  EXPECT_EQ(text(out), "2024-02-29 12:34:56 wd4 yd59 dst0");
  ASSERT_TRUE(TimeUtils::epochToLocal(1709210096, out));
  EXPECT_EQ(std::mktime(&out), 1709210096);  // whatever the time zone
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(TimeUtils, LocalFallsBackToTheLibrary) {
  constexpr auto max = std::numeric_limits<std::int64_t>::max();
  const std::string unknownYear = "Year is out of valid range: 1400..9999";
  const std::string infinity = "tm unable to handle +infinity date value";
  const std::vector<std::pair<std::int64_t, std::string>> table = {
      {253402300800 + 2 * 86400, unknownYear},  // 10000-01-03 in every time zone
      {2069000000000, unknownYear},             // a year that is a valid one modulo 2^16
      {max / 1000000 - 1, unknownYear},
      {max / 1000000 + 1, infinity},
      {max, infinity},
      {-max - 1, "tm unable to handle -infinity date value"},
  };
  for (const auto& [seconds, error] : table) {
    const RecordingLog log;
    std::tm out = ones();
    EXPECT_FALSE(TimeUtils::epochToLocal(seconds, out)) << seconds;
    EXPECT_EQ(text(out), text(std::tm{}));
    const std::string falling = "[Time] Falling back to boost::posix_time while converting '";
    EXPECT_THAT(
        log.lines(),
        ElementsAre(LoggedLine{LogLevel::Verbose, falling + std::to_string(seconds) + "' from epoch."},
                    LoggedLine{LogLevel::Error, "[Time] `boost::posix_time`: " + error}));
  }
#ifdef _WIN32  // whose C library ends with the year 3000
  std::tm out = ones();
  EXPECT_TRUE(TimeUtils::epochToLocal(48288182400, out));
  EXPECT_EQ(text(out), "3500-03-12 00:00:00 wd1 yd70 dst-1");
#endif
}

}  // namespace
}  // namespace zarn
