#include "util/time_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "support/recording_log.h"

namespace zarn::testing {
namespace {

std::string text(const std::tm& t) {
  return formatPrintf("%04d-%02d-%02d %02d:%02d:%02d wd%d yd%d dst%d", t.tm_year + 1900, t.tm_mon + 1,
                      t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday, t.tm_yday, t.tm_isdst);
}

TEST(TimeUtils, ConvertsAndRefusesWhatIsNoTime) {
  const RecordingLog log;
  std::tm out{};
  EXPECT_TRUE(TimeUtils::epochToUtc(1709210096, out));
  EXPECT_EQ(text(out), "2024-02-29 12:34:56 wd4 yd59 dst0");
  for (std::int64_t hour = 0; hour < 24; ++hour) {
    const std::int64_t seconds = 1709210096 + hour * 3600;
    ASSERT_TRUE(TimeUtils::epochToLocal(seconds, out));
    EXPECT_EQ(std::mktime(&out), seconds);  // whatever the time zone
  }
  EXPECT_THAT(log.texts(), ::testing::IsEmpty()) << "the C library's fields are good ones";
  EXPECT_FALSE(TimeUtils::epochToUtc(std::numeric_limits<std::int64_t>::max(), out));
  EXPECT_EQ(text(out), text(std::tm{}));
  EXPECT_FALSE(TimeUtils::epochToLocal(2069000000000, out));  // a valid year modulo 2^16
  for (const std::int64_t none : {0, -1})
    EXPECT_FALSE(TimeUtils::epochToUtc(none, out) || TimeUtils::epochToLocal(none, out));
}

TEST(TimeUtils, ValidFields) {
  const auto with = [](int std::tm::*field, int value, int dayOfYear = 100) {
    std::tm fields{};
    fields.tm_mday = 1;
    fields.tm_yday = dayOfYear;
    fields.*field = value;
    return TimeUtils::validFields(fields);
  };
  for (const auto& [field, low, high] : {std::tuple{&std::tm::tm_sec, 0, 59},
                                         {&std::tm::tm_min, 0, 75},
                                         {&std::tm::tm_hour, 0, 23},
                                         {&std::tm::tm_mday, 1, 31},
                                         {&std::tm::tm_mon, 0, 11},
                                         {&std::tm::tm_wday, 0, 6},
                                         {&std::tm::tm_yday, 1, 365},
                                         {&std::tm::tm_year, -1900, 8099}}) {
    EXPECT_TRUE(with(field, low) && with(field, high)) << high;
    EXPECT_FALSE(field != &std::tm::tm_yday && with(field, low - 1)) << low;
    EXPECT_FALSE(field != &std::tm::tm_min && with(field, high + 1)) << high;
  }
  EXPECT_TRUE(with(&std::tm::tm_mday, 1, 0));
  EXPECT_FALSE(with(&std::tm::tm_mday, 2, 0) || with(&std::tm::tm_mon, 1, 0) || with(&std::tm::tm_yday, -1));
}

}  // namespace
}  // namespace zarn::testing
