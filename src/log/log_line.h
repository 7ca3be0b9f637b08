// A line on its way from the thread that logs it to the file, and how it looks there:
//
//   Nov 15, 2026 22:42:15.123 [4312] INFO - message
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

#include "os/clock.h"
#include "util/logging.h"

namespace zarn {

struct LogStamp {
  LogLevel level = LogLevel::Info;
  std::uint32_t threadId = 0;  ///< of the thread that logged
  WallTime time;               ///< when it was logged, not when it is written
};

struct LogItem : LogStamp {
  std::string message;  ///< UTF-8, formatted, context prefix included
};

/// "ERROR", "WARN", "INFO", "DEBUG" or "VERBOSE"; "?" for every other number.
[[nodiscard]] std::string_view logLevelName(LogLevel level) noexcept;

/// The local calendar time; all fields zero when the C library cannot convert.
[[nodiscard]] std::tm localCalendarTime(std::int64_t seconds) noexcept;

/// `seconds` as local time in the form "Nov 15, 2026 22:42:15".
[[nodiscard]] std::string logTimeText(std::int64_t seconds);

/// Renders lines into one buffer that it keeps. Not for two threads at once.
class LogLineRenderer {
 public:
  /// The whole line with one line feed at its end, one of the message's own
  /// included. Valid until the next call.
  [[nodiscard]] std::string_view render(const LogItem& item);

 private:
  std::string line_;
  // Lines come many a second: the text of the last second is kept.
  std::int64_t renderedSeconds_ = -1;
  std::string timeText_;
};

}  // namespace zarn
