#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prefs/preferences.h"
#include "support/environment.h"
#include "support/recording_log.h"
#include "system/power_manager.h"
#include "system/system_info.h"

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;

TEST(SystemInfo, TheEnvironmentReplacesThePlatformInfo) {
  std::string texts[3] = {"stale", "stale", "stale"};
  getPlatformInfo(texts[0], texts[1], texts[2]);
  EXPECT_THAT(texts, ElementsAre("Microsoft", "PC", "x64-x64"));
  setEnvironment("ZARN_MEDIA_SERVER_INFO_VENDOR", "Vendor");
  setEnvironment("ZARN_MEDIA_SERVER_INFO_DEVICE", "Box");
  SetEnvironmentVariableW(L"ZARN_MEDIA_SERVER_INFO_MODEL", L"");
  getPlatformInfo(texts[0], texts[1], texts[2]);
  EXPECT_THAT(texts, ElementsAre("Vendor", "Box", ""));
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

[[maybe_unused]] const bool onTestStore = (Preferences::useTestStore(true), true);

std::vector<EXECUTION_STATE> statesSet;

TEST(PowerManager, FollowsTheStateAndThePreference) {
  PowerManagerCalls calls = PowerManagerCalls::system();
  calls.waitFor = [](HANDLE) -> DWORD { return WAIT_OBJECT_0; };
  calls.setExecutionState = [](EXECUTION_STATE flags) {
    statesSet.push_back(flags);
    return EXECUTION_STATE{ES_CONTINUOUS};
  };
  Preferences::instance().removeValue("AwayModeSupported");  // the catalogue's default
  for (const bool idle : {false, true}) runPowerManagerRound({.idle = idle}, calls);
  Preferences::instance().setBoolValue("AwayModeSupported", false);
  EXPECT_EQ(statesSet.size(), 2U);  // not before the next signal
  for (const bool idle : {false, true}) runPowerManagerRound({.idle = idle}, calls);
  EXPECT_THAT(statesSet, ElementsAre(0x80000041U, 0x80000000U, 0x80000001U, 0x80000000U));
}

TEST(PowerManager, ReportsEachFailureAndGoesOn) {
  const RecordingLog log;
  PowerManagerCalls calls = PowerManagerCalls::system();
  calls.waitFor = [](HANDLE) -> DWORD { return WAIT_FAILED; };
  calls.setExecutionState = [](EXECUTION_STATE) { return EXECUTION_STATE{0}; };
  SetLastError(5);
  EXPECT_FALSE(runPowerManagerRound({}, calls));
  calls.waitFor = [](HANDLE) -> DWORD { return WAIT_OBJECT_0; };
  EXPECT_TRUE(runPowerManagerRound({.idle = true}, calls));
  EXPECT_THAT(log.texts(), ElementsAre("WaitForSingleObject failed: 0x5",
                                       "SetThreadExecutionState(-2147483648) failed: 0x5"));
}

TEST(PowerManager, RunsBeforeMain) {
  const HANDLE event = powerManagerState().wakeEvent;
  ASSERT_NE(event, nullptr);
  // The thread takes the signal away; without it, this wait would find it every time.
  bool taken = false;
  for (int attempt = 0; attempt < 200 && !taken; ++attempt) {
    ASSERT_NE(SetEvent(event), 0);
    Sleep(10);
    taken = WaitForSingleObject(event, 0) == WAIT_TIMEOUT;
  }
  EXPECT_TRUE(taken);
}

}  // namespace
}  // namespace zarn::testing
