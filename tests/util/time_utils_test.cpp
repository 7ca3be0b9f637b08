#include "util/time_utils.h"

#include <gtest/gtest.h>

#include <limits>

#include "util/logging.h"

namespace zarn::testing {
namespace {

std::string text(const std::tm& t) {
  return formatPrintf("%04d-%02d-%02d %02d:%02d:%02d wd%d yd%d dst%d", t.tm_year + 1900, t.tm_mon + 1,
                      t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday, t.tm_yday, t.tm_isdst);
}

TEST(TimeUtils, ConvertsAndRefusesWhatIsNoTime) {
  std::tm out{};
  EXPECT_TRUE(TimeUtils::epochToUtc(1709210096, out));
  EXPECT_EQ(text(out), "2024-02-29 12:34:56 wd4 yd59 dst0");
  ASSERT_TRUE(TimeUtils::epochToLocal(1709210096, out));
  EXPECT_EQ(std::mktime(&out), 1709210096);  // whatever the time zone
  EXPECT_FALSE(TimeUtils::epochToUtc(std::numeric_limits<std::int64_t>::max(), out));
  EXPECT_EQ(text(out), text(std::tm{}));
  EXPECT_FALSE(TimeUtils::epochToLocal(2069000000000, out));  // a valid year modulo 2^16
  for (const std::int64_t none : {0, -1}) {
    EXPECT_FALSE(TimeUtils::epochToUtc(none, out));
    EXPECT_FALSE(TimeUtils::epochToLocal(none, out));
  }
}

TEST(TimeUtils, ValidFields) {
  std::tm good{};
  good.tm_mday = 1;  // 1 January 1900
  good.tm_min = 75;  // has no upper bound
  EXPECT_TRUE(TimeUtils::validFields(good));
  const std::pair<int std::tm::*, int> changes[] = {{&std::tm::tm_sec, 60},   {&std::tm::tm_hour, 24},
                                                    {&std::tm::tm_mday, 2},   {&std::tm::tm_mon, 12},
                                                    {&std::tm::tm_yday, 366}, {&std::tm::tm_year, 8100}};
  for (const auto& [field, value] : changes) {
    std::tm changed = good;
    changed.*field = value;
    EXPECT_FALSE(TimeUtils::validFields(changed)) << value;
  }
}

}  // namespace
}  // namespace zarn::testing
