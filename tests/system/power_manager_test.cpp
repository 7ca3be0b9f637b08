#include "system/power_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prefs/preferences.h"
#include "support/recording_log.h"

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;

[[maybe_unused]] const bool onTestStore = (Preferences::useTestStore(true), true);

std::vector<EXECUTION_STATE> statesSet;

TEST(PowerManager, FollowsTheStateAndThePreference) {
  PowerManagerCalls calls = PowerManagerCalls::system();
  calls.waitFor = [](HANDLE) -> DWORD { return WAIT_OBJECT_0; };
  calls.setExecutionState = [](EXECUTION_STATE flags) {
    statesSet.push_back(flags);
    return EXECUTION_STATE{ES_CONTINUOUS};
  };
  const auto round = [&](bool idle) { runPowerManagerRound({.idle = idle}, calls); };
  Preferences::instance().removeValue("AwayModeSupported");
  round(false);  // the catalogue's default
  round(true);
  Preferences::instance().setBoolValue("AwayModeSupported", false);
  EXPECT_EQ(statesSet.size(), 2U);  // not before the next signal
  round(false);
  round(true);
  EXPECT_THAT(statesSet, ElementsAre(0x80000041U, 0x80000000U, 0x80000001U, 0x80000000U));
}

TEST(PowerManager, AFailedWaitIsLogged) {
  const RecordingLog log(LogLevel::Error);
  runPowerManagerRound({.wakeEvent = nullptr}, PowerManagerCalls::system());
  EXPECT_THAT(log.texts(), ElementsAre("WaitForSingleObject failed: 0x6"));
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
