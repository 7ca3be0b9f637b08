#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include "support/recording_log.h"
#include "system/system_info.h"

namespace zarn {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LoggedLine;
using testing::RecordingLog;

std::vector<std::string> platformInfo() {
  std::string vendor = "stale";
  std::string device = "stale";
  std::string model = "stale";
  getPlatformInfo(vendor, device, model);
  return {vendor, device, model};
}

TEST(SystemInfo, TheEnvironmentReplacesThePlatformInfo) {
  EXPECT_THAT(platformInfo(), ElementsAre("Microsoft", "PC", "x64-x64"));
  SetEnvironmentVariableW(L"ZARN_MEDIA_SERVER_INFO_VENDOR", L"Caf\u00E9");
  SetEnvironmentVariableW(L"ZARN_MEDIA_SERVER_INFO_MODEL", L"");
  EXPECT_THAT(platformInfo(), ElementsAre("Caf\xC3\xA9", "PC", ""));
  SetEnvironmentVariableW(L"ZARN_MEDIA_SERVER_INFO_VENDOR", nullptr);
  SetEnvironmentVariableW(L"ZARN_MEDIA_SERVER_INFO_MODEL", nullptr);
  EXPECT_THAT(platformInfo(), ElementsAre("Microsoft", "PC", "x64-x64"));
}

TEST(SystemInfo, LocaleNames) {
  const RecordingLog log;
  EXPECT_EQ(getLocaleName(0x0409), "en-US");
  EXPECT_EQ(getLocaleName(0x0407), "de-DE");
  EXPECT_EQ(getLocaleName(0x0416), "pt-BR");
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(getLocaleName(0xF3FF), "en-US");
  EXPECT_THAT(log.lines(),
              ElementsAre(LoggedLine{LogLevel::Error,
                                     "Unable to get locale name for LCID 62463, defaulting to en-US"}));
}

TEST(SystemInfo, LogsTheSystemAndTheProcessor) {
  const RecordingLog log;
  SetEnvironmentVariableW(L"PROCESSOR_IDENTIFIER", L"One\nline");
  logOSInformation();
  logProcessorInformation();
  SetEnvironmentVariableW(L"PROCESSOR_IDENTIFIER", nullptr);
  logProcessorInformation();
  const auto texts = log.texts();
  ASSERT_EQ(texts.size(), 3U);
  EXPECT_EQ(texts[0].rfind("Windows version: " + getOSVersionString() + ", language ", 0), 0U) << texts[0];
  SYSTEM_INFO info{};
  GetSystemInfo(&info);
  EXPECT_EQ(texts[1].rfind(std::to_string(info.dwNumberOfProcessors) + " ", 0), 0U) << texts[1];
  EXPECT_THAT(texts[1], ::testing::HasSubstr(" MHz processor(s): Architecture=9, Level="));
  EXPECT_THAT(texts[1], ::testing::EndsWith(" Processor Identifier=One\\x0aline"));
  EXPECT_THAT(texts[2], ::testing::EndsWith(" Processor Identifier="));
  for (const auto& line : log.lines()) EXPECT_EQ(line.level, LogLevel::Info);
}

}  // namespace
}  // namespace zarn
