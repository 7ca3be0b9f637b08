// The time of day, as the system tells and divides it.
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>

namespace zarn {

struct WallTime {
  std::int64_t seconds = 0;  ///< since the epoch
  std::uint16_t milliseconds = 0;
};

namespace os {

/// As exact as the system's last tick.
[[nodiscard]] WallTime wallTime() noexcept;

/// The C library's conversions; `out` is meaningless after false.
[[nodiscard]] bool localTime(std::int64_t seconds, std::tm& out) noexcept;
[[nodiscard]] bool utcTime(std::int64_t seconds, std::tm& out) noexcept;

/// How long an idle thread waits before it looks for work again while more may soon
/// follow; zero: it sleeps until it is woken.
///
/// Zero on Windows, where even the shortest wait lasts a tick of the system's timer,
/// and a log line would stay out of the file so long. Elsewhere polling spares threads
/// that log the cost of waking the writer; it sleeps all the same when no line comes
/// for some milliseconds, so that the sanitizers see both ways.
[[nodiscard]] std::chrono::microseconds pollInterval() noexcept;

}  // namespace os
}  // namespace zarn
