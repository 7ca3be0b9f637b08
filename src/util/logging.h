// How every part of the service writes a log line:
//
//   logLine(LogLevel::Debug, "Installer exit code:  %d - %s", code, text);
//
// Formats are printf formats and are checked against their arguments when the
// program is compiled. Text is UTF-8. Arguments that came from outside the
// process go through printable() (util/printable.h) first, so that one record
// stays one line.
//
// The lines go to the process-wide LogSink, which is the logger of log/log.h in
// the service and a recorder in tests. Before a sink is set, they go nowhere.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

#include "util/exceptions.h"
#include "util/printf_format.h"

namespace zarn {

/// A line passes when its level is at most the threshold.
enum class LogLevel : std::int32_t { Error = 0, Warn = 1, Info = 2, Debug = 3, Verbose = 4 };

/// Where log lines go. All operations may be called from any thread.
class LogSink {
 public:
  virtual ~LogSink() = default;

  [[nodiscard]] bool isEnabled(LogLevel level) const noexcept {
    return static_cast<std::int32_t>(level) <= threshold_.load(std::memory_order_relaxed);
  }
  [[nodiscard]] LogLevel threshold() const noexcept {
    return static_cast<LogLevel>(threshold_.load(std::memory_order_relaxed));
  }
  /// Returns the threshold that was in force.
  LogLevel setThreshold(LogLevel level) noexcept;

  /// Takes one formatted message (no context prefix, no time), whose level has passed.
  virtual void submit(LogLevel level, std::string_view message) = 0;

  /// Writes "FATAL ERROR: " and the message, waits until every line so far is on
  /// disk and ends the process.
  [[noreturn]] virtual void fatal(const std::string& message) = 0;

  /// A line that had passed is lost: there was no memory to make it.
  virtual void countLost() noexcept {}

 private:
  std::atomic<std::int32_t> threshold_{static_cast<std::int32_t>(LogLevel::Info)};
};

namespace detail {

extern std::atomic<LogSink*> currentLogSink;
/// That sink's threshold; lower than every level when there is none. A suppressed
/// line costs no more than reading it.
extern std::atomic<std::int32_t> currentThreshold;

}  // namespace detail

/// Makes `sink` the destination of all lines from here on (null: nowhere) and
/// returns the one before. The sink must outlive every thread that logs.
LogSink* setLogSink(LogSink* sink) noexcept;

[[nodiscard]] inline LogSink* logSink() noexcept {
  return detail::currentLogSink.load(std::memory_order_acquire);
}

namespace detail {
/// Numbers go by value: what has its address taken cannot stay in a register.
template <typename T>
using Passed = std::conditional_t<std::is_scalar_v<T>, T, const T&>;

/// Apart from logLine, and given the format in pieces, so that a suppressed line pays for none of it.
template <typename... Args>
[[gnu::noinline]] void submitLine(LogLevel level, std::string_view format, FormatPieces pieces,
                                  Passed<Args>... args) {
  LogSink* const sink = logSink();
  if (sink == nullptr || !sink->isEnabled(level)) return;
  try {
    TextBuffer text;
    formatTo<Args...>(text, format, pieces, args...);
    sink->submit(level, {text.data(), text.size()});
  } catch (const std::bad_alloc&) {
    sink->countLost();
  }
}
}  // namespace detail

/// Writes one line. A line above the threshold costs an atomic load; its
/// arguments are not formatted. Memory that runs out in here costs the line; that of
/// an argument, such as printable() makes, is the caller's.
template <typename... Args>
void logLine(LogLevel level, PrintfFormat<std::type_identity_t<Args>...> format, const Args&... args) {
  if (static_cast<std::int32_t>(level) > detail::currentThreshold.load(std::memory_order_relaxed)) return;
  detail::submitLine<Args...>(level, format.text(), format.pieces(), args...);
}

namespace detail {
[[noreturn]] void endWithFatalLine(const std::string& message);
}

/// Logs "FATAL ERROR: " and the message at level Error, waits until it is on disk
/// and ends the process with the exception code 0xC0DEDEAD. Neither a format that
/// cannot be formatted nor memory that runs out stops it.
template <typename... Args>
[[noreturn]] void logFatal(PrintfFormat<std::type_identity_t<Args>...> format, const Args&... args) {
  std::string message;
  try {
    message = formatPrintf<Args...>(format, args...);
  } catch (const std::exception& error) {
    quietly([&] {
      message = formatPrintf("Log: Error handling format string '%s': %s", format.text(),
                             std::string_view(error.what()));
    });
  }
  detail::endWithFatalLine(message);
}

/// The calling thread's labels as they begin its lines, "[outer/inner] "; empty when
/// it has none. Valid until the newest label's scope ends.
[[nodiscard]] std::string_view logTagPrefix() noexcept;

/// Appends a label to the calling thread's list for a scope. A label that the
/// list already holds is not repeated: an empty one takes its place. Only for
/// local variables, which end in the opposite order on their own thread.
class LogTag {
 public:
  explicit LogTag(std::string_view label);
  LogTag(const LogTag&) = delete;
  LogTag& operator=(const LogTag&) = delete;
  ~LogTag();

 private:
  friend std::string_view logTagPrefix() noexcept;

  std::string label_;
  LogTag* const outer_;
  std::string prefix_;
};

}  // namespace zarn
