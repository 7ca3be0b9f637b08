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

TEST(TimeUtils, ValidFields) {
  const auto with = [](int std::tm::*field, int value) {
    std::tm changed = ones();
    changed.*field = value;
    return TimeUtils::validFields(changed);
  };
  const std::tuple<int std::tm::*, int, int> ranges[] = {
      {&std::tm::tm_sec, 0, 59},   {&std::tm::tm_min, 0, 75},       {&std::tm::tm_hour, 0, 23},
      {&std::tm::tm_mday, 1, 31},  {&std::tm::tm_mon, 0, 11},       {&std::tm::tm_wday, 0, 6},
      {&std::tm::tm_yday, 1, 365}, {&std::tm::tm_year, -1900, 8099}};
  for (const auto& [field, low, high] : ranges) {
    EXPECT_TRUE(with(field, low) && with(field, high));
    EXPECT_FALSE(with(field, low - 1));
    EXPECT_EQ(with(field, high + 1), field == &std::tm::tm_min);  // minutes have no upper bound
  }
  // Day of year 0 is 1 January and nothing else.
  std::tm january = ones();
  january.tm_yday = january.tm_mon = 0;
  EXPECT_TRUE(TimeUtils::validFields(january));
  january.tm_mday = 2;
  EXPECT_FALSE(TimeUtils::validFields(january));
}

TEST(TimeUtils, NoTimeIsRefused) {
  for (const std::int64_t seconds : {0, -1}) {
    const RecordingLog log;
    std::tm out = ones();
    EXPECT_FALSE(TimeUtils::epochToLocal(seconds, out));
    EXPECT_THAT(log.lines(), IsEmpty());
    out = ones();
    EXPECT_FALSE(TimeUtils::epochToUtc(seconds, out));
    EXPECT_EQ(out.tm_isdst, 0);
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

TEST(TimeUtils, UtcHasNoFallback) {
  const RecordingLog log;
  std::tm out = ones();
  EXPECT_FALSE(TimeUtils::epochToUtc(std::numeric_limits<std::int64_t>::max(), out));
  EXPECT_EQ(text(out), text(std::tm{}));
  EXPECT_THAT(log.texts(), ElementsAre("[Time] Failed to convert '9223372036854775807' from epoch to GMT."));
}

}  // namespace
}  // namespace zarn
