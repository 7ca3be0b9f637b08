#include "system/power_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prefs/preferences.h"
#include "support/recording_log.h"

namespace zarn {
namespace {

using ::testing::ElementsAre;
using testing::RecordingLog;

[[maybe_unused]] const bool onTestStore = (Preferences::useTestStore(true), true);

std::vector<EXECUTION_STATE> statesSet;

PowerManagerCalls scripted() {
  PowerManagerCalls calls = PowerManagerCalls::system();
  calls.waitFor = [](HANDLE) -> DWORD { return WAIT_OBJECT_0; };
  calls.setExecutionState = [](EXECUTION_STATE flags) {
    statesSet.push_back(flags);
    return EXECUTION_STATE{ES_CONTINUOUS};
  };
  return calls;
}

template <typename Result>
Result failWith(DWORD error) {
  SetLastError(error);
  return Result{};
}

TEST(PowerManager, FollowsTheStateAndThePreference) {
  statesSet.clear();
  const auto round = [](bool idle) { runPowerManagerRound({.idle = idle}, scripted()); };
  Preferences::instance().removeValue("AwayModeSupported");
  round(false);  // the catalogue's default
  round(true);
  Preferences::instance().setBoolValue("AwayModeSupported", false);
  EXPECT_EQ(statesSet.size(), 2U);  // not before the next signal
  round(false);
  round(true);
  EXPECT_THAT(statesSet, ElementsAre(0x80000041U, 0x80000000U, 0x80000001U, 0x80000000U));
}

TEST(PowerManager, FailedCallsAreLogged) {
  const RecordingLog log(LogLevel::Error);
  PowerManagerCalls calls = scripted();
  calls.setExecutionState = [](EXECUTION_STATE) { return failWith<EXECUTION_STATE>(0x57); };
  runPowerManagerRound({.idle = true}, calls);
  calls.waitFor = PowerManagerCalls::system().waitFor;  // for nothing, which fails
  runPowerManagerRound({.wakeEvent = nullptr}, calls);

  // A failed start: no event, and a thread that is tried all the same.
  calls.createEvent = [] { return failWith<HANDLE>(0x5); };
  calls.createThread = [](LPTHREAD_START_ROUTINE, void*) { return failWith<HANDLE>(0x8); };
  const HANDLE running = powerManagerState().wakeEvent;
  startPowerManager(calls);
  powerManagerState().wakeEvent = running;
  EXPECT_THAT(log.texts(), ElementsAre("SetThreadExecutionState(-2147483648) failed: 0x57",
                                       "WaitForSingleObject failed: 0x6",
                                       "CreateThread(WindowsPowerManagerThread) failed: 0x5",
                                       "CreateThread(WindowsPowerManagerThread) failed: 0x8"));
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
}  // namespace zarn
