#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/environment.h"
#include "support/recording_log.h"
#include "system/system_info.h"

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;

TEST(SystemInfo, TheEnvironmentReplacesThePlatformInfo) {
  const auto expectInfo = [](const char* vendor, const char* device, const char* model) {
    std::string texts[3] = {"stale", "stale", "stale"};
    getPlatformInfo(texts[0], texts[1], texts[2]);
    EXPECT_THAT(texts, ElementsAre(vendor, device, model));
  };
  expectInfo("Microsoft", "PC", "x64-x64");
  setEnvironment("ZARN_MEDIA_SERVER_INFO_VENDOR", "Vendor");
  setEnvironment("ZARN_MEDIA_SERVER_INFO_DEVICE", "Box");
  expectInfo("Vendor", "Box", "x64-x64");
}

TEST(SystemInfo, OSVersionAndLocaleNames) {
  const RecordingLog log(LogLevel::Error);
  EXPECT_EQ(formatOSVersion(0x4A65000A), "10.0 (Build 19045)");
  EXPECT_EQ(formatOSVersion(0xFFFF0206), "6.2 (Build 65535)");
  EXPECT_EQ(getLocaleName(0x0407) + getLocaleName(0x0416), "de-DEpt-BR");
  EXPECT_EQ(getLocaleName(0xF3FF), "en-US");
  EXPECT_THAT(log.texts(), ElementsAre("Unable to get locale name for LCID 62463, defaulting to en-US"));
}

TEST(SystemInfo, LogsTheSystemAndTheProcessor) {
  const RecordingLog log(LogLevel::Info);
  setEnvironment("PROCESSOR_IDENTIFIER", "One\nline");
  logOSInformation();
  logProcessorInformation();
  EXPECT_THAT(log.texts(),
              ElementsAre(::testing::StartsWith("Windows version: " + getOSVersionString() + ", language "),
                          ::testing::MatchesRegex("\\d+ \\d+ MHz processor\\(s\\): Architecture=9, "
                                                  "Level=\\d+, Revision=\\d+ "
                                                  "Processor Identifier=One\\\\x0aline")));
}

}  // namespace
}  // namespace zarn::testing
