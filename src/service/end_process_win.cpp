#include "service/end_process.h"

#include <windows.h>

#include <cstdlib>

#include "log/log.h"
#include "os/handles_win.h"
#include "util/events.h"
#include "util/exceptions.h"
#include "util/logging.h"

namespace zarn {

void shutLoggerDown() noexcept {
  flushEvents(kLastEventsLimit);  // first: what fails there may have a line to write
  // Stopping abandons what is still queued, which would be the lines that tell
  // why the process ends.
  quietly([] { Log::instance().flush(kLastLinesLimit); });
  quietly([] { Log::instance().stop(kLastLinesLimit); });
}

void endProcess(std::uint32_t exitCode) noexcept {
  shutLoggerDown();
  TerminateProcess(GetCurrentProcess(), exitCode);
  std::_Exit(static_cast<int>(exitCode));
}

namespace {

constexpr std::uint32_t kFatalErrorCode = 0xC0DEDEAD;
constexpr DWORD kLastLineMilliseconds = 6000;  // a little more than the flush is given

DWORD WINAPI writeLastLine(void* context) {
  const std::uint32_t code = *static_cast<const std::uint32_t*>(context);
  quietly([code] {
    logLine(LogLevel::Error, "Error: Structured exception 0x%08x in a call, exiting", code);
    Log::instance().flush(kLastLinesLimit);  // first: the thread may hold a lock that the event needs
    reportEvent<EventId::FatalEnd>(formatPrintf("0x%08X", code), "a structured exception in a call");
  });
  flushEvents(kLastEventsLimit);  // for as long as is waited for this thread
  return 0;
}

}  // namespace

void endProcessAfterFault(std::uint32_t code) noexcept {
  if (code != kFatalErrorCode) {
    const KernelHandle thread(CreateThread(nullptr, 0, writeLastLine, &code, 0, nullptr));
    if (thread) WaitForSingleObject(thread.get(), kLastLineMilliseconds);
  }
  TerminateProcess(GetCurrentProcess(), code);
  std::_Exit(static_cast<int>(code));
}

}  // namespace zarn
