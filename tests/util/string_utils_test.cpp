#include "util/string_utils.h"

#include <gtest/gtest.h>

#include "support/recording_log.h"

namespace zarn::testing {
namespace {

using namespace std::string_literals;

TEST(StringUtils, ConvertsBothWays) {
  const std::string beyondBasicPlane = "caf\xC3\xA9 \xF0\x9F\x8E\xAC";
  EXPECT_EQ(StringUtils::utf16to8(StringUtils::utf8to16(beyondBasicPlane)), beyondBasicPlane);
  EXPECT_EQ(StringUtils::utf8to16("ab\0cd"s), L"ab");
  EXPECT_EQ(StringUtils::utf16to8(L"ab\0cd"s), "ab");
}

TEST(StringUtils, InvalidUtf8IsRefusedWhole) {
  const RecordingLog log;
  EXPECT_EQ(StringUtils::utf8to16("good \xC3( bad"), L"");
  EXPECT_TRUE(log.contains("utf8to16: MultiByteToWideChar failed: 1113"));
}

}  // namespace
}  // namespace zarn::testing
