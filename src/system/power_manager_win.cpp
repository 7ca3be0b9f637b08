#include "system/power_manager.h"

#include <exception>

#include "os/handles_win.h"
#include "prefs/preferences.h"
#include "util/exceptions.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {
namespace {

constexpr char kThreadName[] = "WindowsPowerManagerThread";

/// A failed wait returns at once; without a pause its log lines would fill the disk.
constexpr DWORD kPauseMillisecondsAfterFailedWait = 100;

DWORD WINAPI powerManagerThread(void* argument) {
  const auto* const state = static_cast<const PowerManagerState*>(argument);
  for (;;) {
    // An exception must not leave the thread, and no failure ends it.
    try {
      try {
        if (!runPowerManagerRound(*state, PowerManagerCalls::system()))
          Sleep(kPauseMillisecondsAfterFailedWait);
      } catch (const std::exception& error) {
        logLine(LogLevel::Error, "%s: %s, type: %s", kThreadName, printable(error.what()), typeName(error));
      }
    } catch (const std::exception&) {
      Sleep(kPauseMillisecondsAfterFailedWait);  // no memory for the line
    }
  }
}

/// For the event as well as for the thread: whoever reads logs knows this one line.
void logStartFailure() {
  logLine(LogLevel::Error, "CreateThread(WindowsPowerManagerThread) failed: 0x%x", GetLastError());
}

}  // namespace

const PowerManagerCalls& PowerManagerCalls::system() noexcept {
  static constexpr PowerManagerCalls calls = {
      .waitFor = [](HANDLE event) { return WaitForSingleObjectEx(event, INFINITE, FALSE); },
      .setExecutionState = [](EXECUTION_STATE flags) { return SetThreadExecutionState(flags); },
      .createEvent =
          [] { return CreateEventExW(nullptr, nullptr, 0, SYNCHRONIZE | DELETE | EVENT_MODIFY_STATE); },
      .createThread = [](LPTHREAD_START_ROUTINE body,
                         void* argument) { return CreateThread(nullptr, 0, body, argument, 0, nullptr); },
  };
  return calls;
}

PowerManagerState& powerManagerState() noexcept {
  static constinit PowerManagerState state;
  return state;
}

void startPowerManager(const PowerManagerCalls& calls) {
  PowerManagerState& state = powerManagerState();
  state.wakeEvent = calls.createEvent();
  // Without an event every wait of the thread fails, and says so in the log.
  if (state.wakeEvent == nullptr) logStartFailure();
  const KernelHandle thread(calls.createThread(powerManagerThread, &state));
  if (!thread) logStartFailure();
}

bool runPowerManagerRound(const PowerManagerState& state, const PowerManagerCalls& calls) {
  if (calls.waitFor(state.wakeEvent) != WAIT_OBJECT_0) {
    logLine(LogLevel::Error, "WaitForSingleObject failed: 0x%x", GetLastError());
    return false;
  }
  // ES_CONTINUOUS alone takes back whatever an earlier round asked for.
  EXECUTION_STATE flags = ES_CONTINUOUS;
  if (!state.idle) {
    flags |= ES_SYSTEM_REQUIRED;
    if (Preferences::instance().get(preference::kAwayModeSupported)) flags |= ES_AWAYMODE_REQUIRED;
  }
  if (calls.setExecutionState(flags) == 0) {
    logLine(LogLevel::Error, "SetThreadExecutionState(%d) failed: 0x%x", static_cast<std::int32_t>(flags),
            GetLastError());
  }
  return true;
}

namespace {

// Starts the manager while the program that links this file initialises its static state.
[[maybe_unused]] const bool isStarted = (startPowerManager(), true);

}  // namespace
}  // namespace zarn
