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

}  // namespace zarn
