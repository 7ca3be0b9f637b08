// Keeps Windows from putting the machine to sleep while the server is busy.
// Windows only; includes windows.h. A program that links zarn_power has the
// manager running before its main function.
#pragma once

#include <windows.h>

#include <cstdint>

namespace zarn {

/// What the manager's thread acts on. To change it, set `idle` and then signal
/// `wakeEvent`, which also orders the two threads' views of `idle`.
struct PowerManagerState {
  HANDLE wakeEvent = nullptr;  ///< auto-reset; lives as long as the process
  bool idle = true;            ///< the system may sleep
};

static_assert(sizeof(PowerManagerState::idle) == 1);

/// The calls whose failures and effects cannot be provoked or seen from outside.
struct PowerManagerCalls {
  DWORD (*waitFor)(HANDLE event);  ///< without time-out
  EXECUTION_STATE (*setExecutionState)(EXECUTION_STATE flags);
  HANDLE (*createEvent)();
  HANDLE (*createThread)(LPTHREAD_START_ROUTINE body, void* argument);

  static const PowerManagerCalls& system() noexcept;
};

/// The state of this process's manager.
[[nodiscard]] PowerManagerState& powerManagerState() noexcept;

/// Creates the event and starts the thread "WindowsPowerManagerThread", which is
/// never joined and ends with the process. Failures are logged, if there is a log
/// yet; without an event the thread runs all the same. Once per process.
void startPowerManager(const PowerManagerCalls& calls = PowerManagerCalls::system());

/// One round of the thread: waits for the event, then sets the execution state.
/// Every failure is logged and ends the round. False when the wait failed.
bool runPowerManagerRound(const PowerManagerState& state, const PowerManagerCalls& calls);

}  // namespace zarn
