#include "system/system_info.h"

#include <gtest/gtest.h>

namespace zarn {
namespace {

TEST(SystemInfo, OSVersionText) {
  EXPECT_EQ(formatOSVersion(0x4A65000A), "10.0 (Build 19045)");
  EXPECT_EQ(formatOSVersion(0xFFFF0206), "6.2 (Build 65535)");
}

}  // namespace
}  // namespace zarn
