#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include "support/recording_log.h"
#include "system/system_info.h"

namespace zarn {
namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using testing::RecordingLog;
using ::testing::StartsWith;

std::vector<std::string> platformInfo() {
  std::vector<std::string> texts(3, "stale");
  getPlatformInfo(texts[0], texts[1], texts[2]);
  return texts;
}

TEST(SystemInfo, TheEnvironmentReplacesThePlatformInfo) {
  EXPECT_THAT(platformInfo(), ElementsAre("Microsoft", "PC", "x64-x64"));
  SetEnvironmentVariableW(L"ZARN_MEDIA_SERVER_INFO_VENDOR", L"Caf\u00E9");
  SetEnvironmentVariableW(L"ZARN_MEDIA_SERVER_INFO_DEVICE", L"Box");
  SetEnvironmentVariableW(L"ZARN_MEDIA_SERVER_INFO_MODEL", L"");
  EXPECT_THAT(platformInfo(), ElementsAre("Caf\xC3\xA9", "Box", ""));
}

TEST(SystemInfo, LocaleNames) {
  const RecordingLog log(LogLevel::Error);
  EXPECT_EQ(getLocaleName(0x0407) + getLocaleName(0x0416), "de-DEpt-BR");
  EXPECT_EQ(getLocaleName(0xF3FF), "en-US");
  EXPECT_THAT(log.texts(), ElementsAre("Unable to get locale name for LCID 62463, defaulting to en-US"));
}

TEST(SystemInfo, LogsTheSystemAndTheProcessor) {
  const RecordingLog log(LogLevel::Info);
  SetEnvironmentVariableW(L"PROCESSOR_IDENTIFIER", L"One\nline");
  logOSInformation();
  logProcessorInformation();
  EXPECT_THAT(log.texts(),
              ElementsAre(StartsWith("Windows version: " + getOSVersionString() + ", language "),
                          MatchesRegex("\\d+ \\d+ MHz processor\\(s\\): Architecture=9, Level=\\d+, "
                                       "Revision=\\d+ Processor Identifier=One\\\\x0aline")));
}

}  // namespace
}  // namespace zarn
