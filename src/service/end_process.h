// How the process ends on every path of its own.
#pragma once

#include <cstdint>

namespace zarn {

/// Has every event and line so far written, then shuts the logger down; later lines are
/// dropped. An event log that does not answer holds this up for kLastEventsLimit and a disk
/// that stands still for twice kLastLinesLimit, no longer: the writer is then left behind.
void shutLoggerDown() noexcept;

/// Shuts the logger down and ends the process with `exitCode`: no static
/// destructors, no atexit handlers, no DLL's detach routine. Other threads may be
/// anywhere, holding any lock, so nothing of the process runs on. Whatever fails on
/// the way, the process ends.
[[noreturn]] void endProcess(std::uint32_t exitCode) noexcept;

/// Ends the process after a fault of the calling thread, with the fault's code, once a
/// line and an event about it have been written or kLastLinesLimit has passed. The thread
/// may hold any lock, so that nothing else is done on it. After logFatal(), whose code this is for,
/// there has been a line.
[[noreturn]] void endProcessAfterFault(std::uint32_t code) noexcept;

}  // namespace zarn
