#include "system/system_info.h"

#include <gtest/gtest.h>

namespace zarn {
namespace {

TEST(SystemInfo, ArchitectureNames) {
  for (std::uint16_t code = 0; code < 20; ++code) {
    const std::string_view expected = code == 0    ? "x86"
                                      : code == 5  ? "arm"
                                      : code == 6  ? "ia64"
                                      : code == 9  ? "x64"
                                      : code == 12 ? "arm64"
                                                   : "";
    EXPECT_EQ(architectureName(code), expected) << code;
  }
  EXPECT_EQ(architectureName(0xFFFF), "");
}

TEST(SystemInfo, OSVersionText) {
  EXPECT_EQ(formatOSVersion(0x4A65000A), "10.0 (Build 19045)");
  EXPECT_EQ(formatOSVersion(0xFFFF0206), "6.2 (Build 65535)");
}

}  // namespace
}  // namespace zarn
