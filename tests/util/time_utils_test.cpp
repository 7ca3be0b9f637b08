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

std::tm fields(int year, int month, int day, int weekday, int dayOfYear) {
  std::tm result{};
  result.tm_year = year - 1900;
  result.tm_mon = month - 1;
  result.tm_mday = day;
  result.tm_wday = weekday;
  result.tm_yday = dayOfYear;
  return result;
}

std::string text(const std::tm& t) {
  return formatPrintf("%04d-%02d-%02d %02d:%02d:%02d wd%d yd%d dst%d", t.tm_year + 1900, t.tm_mon + 1,
                      t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday, t.tm_yday, t.tm_isdst);
}

/// Fields that would show through if they were left alone.
std::tm garbage() {
  std::tm result = fields(1905, 5, 5, 5, 5);
  result.tm_isdst = 1;
  return result;
}

TEST(TimeUtils, ValidFields) {
  const std::tm good = fields(2024, 2, 29, 4, 59);
  EXPECT_TRUE(TimeUtils::validFields(good));
  const auto with = [&](int std::tm::*field, int value) {
    std::tm changed = good;
    changed.*field = value;
    return TimeUtils::validFields(changed);
  };
  struct Range {
    int std::tm::*field;
    int low;
    int high;
  };
  for (const Range& range :
       {Range{&std::tm::tm_sec, 0, 59}, Range{&std::tm::tm_hour, 0, 23}, Range{&std::tm::tm_mday, 1, 31},
        Range{&std::tm::tm_mon, 0, 11}, Range{&std::tm::tm_wday, 0, 6}, Range{&std::tm::tm_yday, 1, 365},
        Range{&std::tm::tm_year, -1900, 8099}}) {
    EXPECT_TRUE(with(range.field, range.low) && with(range.field, range.high));
    EXPECT_FALSE(with(range.field, range.low - 1) || with(range.field, range.high + 1));
  }
  EXPECT_TRUE(with(&std::tm::tm_min, 75));
  EXPECT_FALSE(with(&std::tm::tm_min, -1));
  EXPECT_TRUE(TimeUtils::validFields(fields(2024, 1, 1, 1, 0)));
  EXPECT_FALSE(TimeUtils::validFields(fields(2024, 1, 2, 1, 0)));
  EXPECT_FALSE(TimeUtils::validFields(fields(2024, 2, 1, 1, 0)));
}

TEST(TimeUtils, NoTimeIsRefused) {
  RecordingLog log;
  for (const std::int64_t seconds : {0, -1}) {
    std::tm out = garbage();
    EXPECT_FALSE(TimeUtils::epochToLocal(seconds, out));
    EXPECT_THAT(log.lines(), IsEmpty());
    out = garbage();
    EXPECT_FALSE(TimeUtils::epochToUtc(seconds, out));
    EXPECT_EQ(out.tm_isdst, 0);
    EXPECT_THAT(log.lines(), ElementsAre(LoggedLine{LogLevel::Error, "[Time] Failed to convert '" +
                                                                         std::to_string(seconds) +
                                                                         "' from epoch to GMT."}));
    log.clear();
  }
}

TEST(TimeUtils, Converts) {
  const RecordingLog log;
  std::tm out = garbage();
  EXPECT_TRUE(TimeUtils::epochToUtc(1709210096, out));
  EXPECT_EQ(text(out), "2024-02-29 12:34:56 wd4 yd59 dst0");
  out = garbage();
  ASSERT_TRUE(TimeUtils::epochToLocal(1709210096, out));
  out.tm_isdst = -1;
  EXPECT_EQ(std::mktime(&out), 1709210096);  // whatever the time zone
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(TimeUtils, LocalFallsBackToTheLibrary) {
  RecordingLog log;
  constexpr auto max = std::numeric_limits<std::int64_t>::max();
  const std::string tooBig = "[Time] `boost::posix_time`: Year is out of valid range: 1400..9999";
  const std::string infinity = "[Time] `boost::posix_time`: tm unable to handle +infinity date value";
  const std::string minusInfinity = "[Time] `boost::posix_time`: tm unable to handle -infinity date value";
  const std::vector<std::pair<std::int64_t, std::string>> table = {
      {253402300800 + 2 * 86400, tooBig},  // 10000-01-03 in every time zone
      {2069000000000, tooBig},             // a year that is a valid one modulo 2^16
      {max / 1000000 - 1, tooBig},
      {max / 1000000 + 1, infinity},
      {max, infinity},
      {-max - 1, minusInfinity},
  };
  for (const auto& [seconds, error] : table) {
    std::tm out = garbage();
    EXPECT_FALSE(TimeUtils::epochToLocal(seconds, out)) << seconds;
    EXPECT_EQ(text(out), text(std::tm{}));
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedLine{LogLevel::Verbose,
                                       "[Time] Falling back to boost::posix_time while converting '" +
                                           std::to_string(seconds) + "' from epoch."},
                            LoggedLine{LogLevel::Error, error}))
        << seconds;
    log.clear();
  }
}

TEST(TimeUtils, UtcFailureHasNoFallback) {
  const RecordingLog log;
  std::tm out = garbage();
  EXPECT_FALSE(TimeUtils::epochToUtc(std::numeric_limits<std::int64_t>::max(), out));
  EXPECT_EQ(text(out), text(std::tm{}));
  EXPECT_THAT(log.texts(), ElementsAre("[Time] Failed to convert '9223372036854775807' from epoch to GMT."));
}

#ifdef _WIN32  // whose C library ends with the year 3000
TEST(TimeUtils, TheLibrarysFieldsAreUtc) {
  const RecordingLog log;
  std::tm out = garbage();
  EXPECT_TRUE(TimeUtils::epochToLocal(48288182400, out));
  EXPECT_EQ(text(out), "3500-03-12 00:00:00 wd1 yd70 dst-1");
  EXPECT_EQ(log.lines().size(), 1U);
}
#endif

}  // namespace
}  // namespace zarn
