// What the logger needs of the platform; not for other libraries.
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>

#include "log/log_item.h"

namespace zarn::platform {

[[nodiscard]] LogTime currentLogTime() noexcept;

/// The local calendar time; all fields zero when the C library cannot convert.
[[nodiscard]] std::tm localCalendarTime(std::int64_t seconds) noexcept;

/// How long the idle writer waits before it looks for lines again while more may
/// soon follow; zero: it sleeps until it is woken.
[[nodiscard]] std::chrono::microseconds writerPollInterval() noexcept;

/// Ends the process with the exception code 0xC0DEDEAD (natively: by abort()).
[[noreturn]] void endAfterFatalError() noexcept;

}  // namespace zarn::platform
