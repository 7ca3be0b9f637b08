#include "service/end_process.h"

#include <windows.h>

#include <cstdlib>

#include "log/log.h"

namespace zarn {

void shutLoggerDown() {
  // Stopping abandons what is still queued, which would be the lines that tell
  // why the process ends.
  Log::instance().flush();
  Log::instance().stop();
}

void endProcess(std::uint32_t exitCode) {
  shutLoggerDown();
  TerminateProcess(GetCurrentProcess(), exitCode);
  std::_Exit(static_cast<int>(exitCode));
}

}  // namespace zarn
