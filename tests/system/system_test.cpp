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

TEST(SystemInfo, LogsTheSystemAndTheProcessor) {
  const RecordingLog log(LogLevel::Info);
  EXPECT_EQ(formatOSVersion(0x4A65000A) + formatOSVersion(0xFFFF0206), "10.0 (Build 19045)6.2 (Build 65535)");
  EXPECT_EQ(getLocaleName(0x0407) + getLocaleName(0x0416) + getLocaleName(0xF3FF), "de-DEpt-BRen-US");
  setEnvironment("PROCESSOR_IDENTIFIER", "One\nline");
  logOSInformation();
  logProcessorInformation();
  EXPECT_THAT(
      log.texts(),
      ElementsAre("Unable to get locale name for LCID 62463, defaulting to en-US",
                  ::testing::StartsWith("Windows version: " + getOSVersionString() + ", language "),
                  ::testing::MatchesRegex("\\d+ \\d\\d+ MHz processor\\(s\\): Architecture=9, Level=\\d+, "
                                          "Revision=\\d+ Processor Identifier=One\\\\x0aline")));
}

[[maybe_unused]] const bool onTestStore = (Preferences::useTestStore(true), true);

TEST(PowerManager, FollowsTheStateAndThePreferenceAndReportsFailures) {
  const RecordingLog log;
  static std::vector<EXECUTION_STATE> states;
  PowerManagerCalls calls = PowerManagerCalls::system();
  calls.waitFor = [](HANDLE) -> DWORD { return WAIT_OBJECT_0; };
  calls.setExecutionState = [](EXECUTION_STATE flags) -> EXECUTION_STATE {
    return states.push_back(flags), flags;
  };
  for (const bool idle : {false, true}) EXPECT_TRUE(runPowerManagerRound({.idle = idle}, calls));
  // A change of the preference counts from the next round on.
  Preferences::instance().setBoolValue("AwayModeSupported", false);
  for (const bool idle : {false, true}) EXPECT_TRUE(runPowerManagerRound({.idle = idle}, calls));
  EXPECT_THAT(states, ElementsAre(0x80000041U, 0x80000000U, 0x80000001U, 0x80000000U));
  EXPECT_TRUE(log.lines().empty());
  calls.setExecutionState = [](EXECUTION_STATE) { return EXECUTION_STATE{0}; };
  SetLastError(5);
  EXPECT_TRUE(runPowerManagerRound({.idle = true}, calls));
  calls.waitFor = [](HANDLE) -> DWORD { return WAIT_FAILED; };
  EXPECT_FALSE(runPowerManagerRound({}, calls));
  EXPECT_THAT(log.texts(), ElementsAre("SetThreadExecutionState(-2147483648) failed: 0x5",
                                       "WaitForSingleObject failed: 0x5"));
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
