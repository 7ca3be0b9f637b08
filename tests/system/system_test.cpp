#include "prefs/preferences.h"
#include "support/test.h"
#include "system/power_manager.h"
#include "system/system_info.h"

namespace zarn::testing {
namespace {

using namespace ::testing;

TEST(SystemInfo, TheEnvironmentReplacesThePlatformInfoAndTheLogShowsTheSystem) {
  std::string texts[3] = {"stale", "stale", "stale"};
  getPlatformInfo(texts[0], texts[1], texts[2]);
  EXPECT_THAT(texts, ElementsAre("Microsoft", "PC", "x64-x64"));
  for (const char* name : {"VENDOR", "DEVICE"})
    setEnvironment("ZARN_MEDIA_SERVER_INFO_" + std::string(name), name);
  SetEnvironmentVariableW(L"ZARN_MEDIA_SERVER_INFO_MODEL", L"");
  getPlatformInfo(texts[0], texts[1], texts[2]);
  EXPECT_THAT(texts, ElementsAre("VENDOR", "DEVICE", ""));

  const RecordingLog log(LogLevel::Info);
  EXPECT_EQ(formatOSVersion(0x4A65000A) + formatOSVersion(0xFFFF0206), "10.0 (Build 19045)6.2 (Build 65535)");
  EXPECT_EQ(getLocaleName(0x0407) + getLocaleName(0x0416) + getLocaleName(0xF3FF), "de-DEpt-BRen-US");
  setEnvironment("PROCESSOR_IDENTIFIER", "One\nline");
  logOSInformation();
  logProcessorInformation();
  const std::string processor = "\\d+ \\d\\d+ MHz processor\\(s\\): Architecture=9, Level=\\d+, ";
  const std::string windows = "Windows version: " + getOSVersionString() + ", language ";
  EXPECT_THAT(
      log.texts(),
      ElementsAre("Unable to get locale name for LCID 62463, defaulting to en-US", StartsWith(windows),
                  MatchesRegex(processor + "Revision=\\d+ Processor Identifier=One\\\\x0aline")));
}

[[maybe_unused]] const bool onTestStore = (Preferences::useTestStore(true), true);

TEST(PowerManager, FollowsTheStateAndThePreferenceAndReportsFailures) {
  const RecordingLog log;
  static std::vector<EXECUTION_STATE> states;
  PowerManagerCalls calls = PowerManagerCalls::system();
  calls.waitFor = [](HANDLE) -> DWORD { return WAIT_OBJECT_0; };
  calls.setExecutionState = [](EXECUTION_STATE flags) { return states.push_back(flags), flags; };
  for (int round = 0; round < 4; ++round) {
    if (round == 2) Preferences::instance().setBoolValue("AwayModeSupported", false);
    EXPECT_TRUE(runPowerManagerRound({.idle = round % 2 != 0}, calls));
  }
  EXPECT_THAT(states, ElementsAre(0x80000041U, 0x80000000U, 0x80000001U, 0x80000000U));
  EXPECT_TRUE(log.lines().empty());
  SetLastError(5);
  calls.setExecutionState = [](EXECUTION_STATE) { return EXECUTION_STATE{0}; };
  EXPECT_TRUE(runPowerManagerRound({.idle = true}, calls));
  calls.waitFor = [](HANDLE) -> DWORD { return WAIT_FAILED; };
  EXPECT_FALSE(runPowerManagerRound({}, calls));
  EXPECT_THAT(log.texts(), ElementsAre("SetThreadExecutionState(-2147483648) failed: 0x5",
                                       "WaitForSingleObject failed: 0x5"));
}

TEST(PowerManager, RunsBeforeMain) {
  const HANDLE event = powerManagerState().wakeEvent;
  // The thread takes the signal away; without it, every wait would find it.
  const auto isSignalled = [&] {
    return SetEvent(event) == 0 || (Sleep(10), WaitForSingleObject(event, 0)) != WAIT_TIMEOUT;
  };
  int rounds = 200;
  while (rounds > 0 && isSignalled()) --rounds;
  EXPECT_GT(rounds, 0);
}

}  // namespace
}  // namespace zarn::testing
