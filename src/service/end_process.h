// How the process ends on every path of its own.
#pragma once

#include <cstdint>

namespace zarn {

/// Has every line so far written, then shuts the logger down; later lines are dropped.
void shutLoggerDown();

/// Shuts the logger down and ends the process with `exitCode`: no static
/// destructors, no atexit handlers, no DLL's detach routine. Other threads may be
/// anywhere, holding any lock, so nothing of the process runs on.
[[noreturn]] void endProcess(std::uint32_t exitCode);

/// Ends the process after a fault of the calling thread, with the fault's code, once a
/// line about it has been written or five seconds have passed. The thread may hold any
/// lock, so that nothing else is done on it. After logFatal(), whose code this is for,
/// there has been a line.
[[noreturn]] void endProcessAfterFault(std::uint32_t code) noexcept;

}  // namespace zarn
