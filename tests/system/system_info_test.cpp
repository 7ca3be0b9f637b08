#include "system/system_info.h"

#include <gtest/gtest.h>

namespace zarn {
namespace {

TEST(SystemInfo, ArchitectureNames) {
  std::string names;
  for (std::uint16_t code = 0; code < 20; ++code) names.append(architectureName(code)).append(",");
  EXPECT_EQ(names, "x86,,,,,arm,ia64,,,x64,,,arm64,,,,,,,,");
  EXPECT_EQ(architectureName(0xFFFF), "");
}

TEST(SystemInfo, OSVersionText) {
  EXPECT_EQ(formatOSVersion(0x4A65000A), "10.0 (Build 19045)");
  EXPECT_EQ(formatOSVersion(0xFFFF0206), "6.2 (Build 65535)");
}

}  // namespace
}  // namespace zarn
