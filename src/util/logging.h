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

#include <fmt/printf.h>

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "os/system_error.h"
#include "util/quietly.h"

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

/// Most messages fit into it without memory of their own.
using TextBuffer = fmt::basic_memory_buffer<char, 500>;

std::string formatPrintf(std::string_view format, fmt::printf_args args);

// A call to one of these inside a consteval constructor is a compile error
// whose text is the function's name.
[[noreturn]] void logFormatIsMalformed();
[[noreturn]] void logFormatHasTooFewArguments();
[[noreturn]] void logFormatHasTooManyArguments();
[[noreturn]] void logArgumentDoesNotFitItsConversion();

enum class ArgumentKind : std::uint8_t { Integer, Floating, Text, Other };

template <typename T>
consteval ArgumentKind argumentKind() {
  using U = std::remove_cvref_t<T>;
  if constexpr (std::is_integral_v<U>) {
    return ArgumentKind::Integer;
  } else if constexpr (std::is_floating_point_v<U>) {
    return ArgumentKind::Floating;
  } else if constexpr (std::is_convertible_v<const U&, std::string_view>) {
    return ArgumentKind::Text;
  } else {
    return ArgumentKind::Other;
  }
}

constexpr bool isOneOf(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

constexpr bool fits(char conversion, ArgumentKind kind) {
  if (isOneOf(conversion, "diuxXoc")) return kind == ArgumentKind::Integer;
  if (isOneOf(conversion, "fFeEgG")) return kind == ArgumentKind::Floating;
  return conversion == 's' && kind == ArgumentKind::Text;
}

template <typename T, typename... Others>
inline constexpr bool kIsAnyOf = (std::is_same_v<T, Others> || ...);

/// The conversion that shows a T just as it is; 0 when none does.
template <typename T>
consteval char plainConversion() {
  using U = std::remove_cvref_t<T>;
  if (argumentKind<T>() == ArgumentKind::Text) return 's';
  if (kIsAnyOf<U, int, long, long long>) return 'd';
  if (kIsAnyOf<U, unsigned, unsigned long, unsigned long long>) return 'u';
  return kIsAnyOf<U, char> ? 'c' : '\0';
}

/// What a plain format is made of: the lengths of the texts between its conversions,
/// a byte each, the first one lowest. A format is plain when each conversion is its
/// argument's plain one, without flags, width, precision and length. Most are; they
/// need no printf machinery.
using FormatPieces = std::uint64_t;
inline constexpr FormatPieces kNotPlain = ~FormatPieces{0};
inline constexpr std::size_t kBitsOfPiece = 8;
inline constexpr FormatPieces kLongestPiece = 0xFE;

template <typename... Args>
consteval FormatPieces formatPieces(std::string_view text) {
  constexpr char wanted[] = {plainConversion<Args>()..., '\0'};
  if (sizeof...(Args) >= sizeof(FormatPieces)) return kNotPlain;
  FormatPieces pieces = 0;
  std::size_t used = 0;
  std::size_t begin = 0;
  for (std::size_t end = 0;; end = begin) {
    end = text.find('%', end);
    const bool isLast = end == text.npos;
    const FormatPieces length = (isLast ? text.size() : end) - begin;
    if (length > kLongestPiece) return kNotPlain;
    pieces |= length << (used * kBitsOfPiece);
    if (isLast) return used == sizeof...(Args) ? pieces : kNotPlain;
    if (end + 1 == text.size() || wanted[used] == '\0' || text[end + 1] != wanted[used]) return kNotPlain;
    ++used;
    begin = end + 2;
  }
}

/// Writes a plain format and its arguments to a place with room for them.
class PlainWriter {
 public:
  PlainWriter(char* place, const char* format, FormatPieces pieces) noexcept
      : end_(place), format_(format), pieces_(pieces) {}

  /// The text before the next conversion, or behind the last one.
  void literal() noexcept {
    std::size_t length = pieces_ & 0xFF;
    pieces_ >>= kBitsOfPiece;
    // In place, since calling memcpy costs more than most literals take.
    constexpr std::size_t word = sizeof(std::uint64_t);
    for (; length >= word; length -= word, end_ += word, format_ += word) std::memcpy(end_, format_, word);
    for (; length > 0; --length) *end_++ = *format_++;
  }
  template <typename T>
  void argument(const T& value) noexcept {
    format_ += 2;  // past its conversion
    if constexpr (std::is_same_v<T, char>) {
      *end_++ = value;
    } else if constexpr (std::is_integral_v<T>) {
      number(value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value),
             value < 0);
    } else {
      text(textOf(value));
    }
  }
  [[nodiscard]] const char* end() const noexcept { return end_; }

  /// No more characters than these are written for a value.
  template <typename T>
  [[nodiscard]] static std::size_t longest(const T& value) noexcept {
    if constexpr (std::is_integral_v<T>) {
      return kMostDigits + 1;
    } else {
      return textOf(value).size();
    }
  }

 private:
  static constexpr std::size_t kMostDigits = 20;

  static std::string_view textOf(std::string_view text) noexcept { return text; }
  static std::string_view textOf(const char* text) noexcept { return text != nullptr ? text : "(null)"; }

  void text(std::string_view text) noexcept;
  void number(std::uint64_t magnitude, bool isNegative) noexcept;

  char* end_;
  const char* format_;
  FormatPieces pieces_;
};

/// Appends the formatted text; `pieces` is what formatPieces() says of the format.
/// Throws fmt::format_error when the format does not fit.
template <typename... Args>
void formatTo(TextBuffer& result, std::string_view format, FormatPieces pieces, const Args&... args) {
  if constexpr (((plainConversion<Args>() != '\0') && ...)) {
    if (pieces != kNotPlain) {
      const std::size_t before = result.size();
      result.resize(before + (format.size() + ... + PlainWriter::longest(args)));
      PlainWriter writer(result.data() + before, format.data(), pieces);
      ((writer.literal(), writer.argument(args)), ...);
      writer.literal();
      result.resize(static_cast<std::size_t>(writer.end() - result.data()));
      return;
    }
  }
  result.append(formatPrintf(format, fmt::make_printf_args(args...)));
}

}  // namespace detail

/// A format text known only at run time; a mismatch is then a fmt::format_error
/// in the caller of the log call.
struct RuntimeFormat {
  std::string_view text;
};

/// A printf format that fits the argument types Args.
template <typename... Args>
class PrintfFormat {
 public:
  template <typename T>
  requires std::convertible_to<const T&, std::string_view>
  consteval PrintfFormat(const T& text)  // NOLINT(google-explicit-constructor)
      : text_(text), pieces_(detail::formatPieces<Args...>(text_)) {
    check();
  }
  PrintfFormat(RuntimeFormat format) : text_(format.text) {}  // NOLINT(google-explicit-constructor)

  [[nodiscard]] constexpr std::string_view text() const { return text_; }

  [[nodiscard]] constexpr detail::FormatPieces pieces() const { return pieces_; }

 private:
  consteval void check() const {
    constexpr std::size_t count = sizeof...(Args);
    constexpr detail::ArgumentKind kinds[count + 1] = {detail::argumentKind<Args>()...,
                                                       detail::ArgumentKind::Other};
    std::size_t used = 0;
    const auto take = [&](char conversion) {
      if (used >= count) detail::logFormatHasTooFewArguments();
      if (!detail::fits(conversion, kinds[used])) detail::logArgumentDoesNotFitItsConversion();
      ++used;
    };
    for (std::size_t i = 0; i < text_.size(); ++i) {
      if (text_[i] != '%') continue;
      ++i;
      if (i < text_.size() && text_[i] == '%') continue;
      while (i < text_.size() && detail::isOneOf(text_[i], "-+ #0")) ++i;
      if (i < text_.size() && text_[i] == '*') take('d'), ++i;
      while (i < text_.size() && detail::isOneOf(text_[i], "0123456789")) ++i;
      if (i < text_.size() && text_[i] == '.') {
        ++i;
        if (i < text_.size() && text_[i] == '*') take('d'), ++i;
        while (i < text_.size() && detail::isOneOf(text_[i], "0123456789")) ++i;
      }
      while (i < text_.size() && detail::isOneOf(text_[i], "hljztL")) ++i;
      if (i >= text_.size()) detail::logFormatIsMalformed();
      take(text_[i]);
    }
    if (used != count) detail::logFormatHasTooManyArguments();
  }

  std::string_view text_;
  detail::FormatPieces pieces_ = detail::kNotPlain;
};

/// Makes `sink` the destination of all lines from here on (null: nowhere) and
/// returns the one before. The sink must outlive every thread that logs.
LogSink* setLogSink(LogSink* sink) noexcept;

[[nodiscard]] inline LogSink* logSink() noexcept {
  return detail::currentLogSink.load(std::memory_order_acquire);
}

/// Formats with the printf rules. Throws fmt::format_error on a format that does not fit.
template <typename... Args>
std::string formatPrintf(PrintfFormat<std::type_identity_t<Args>...> format, const Args&... args) {
  detail::TextBuffer text;
  detail::formatTo(text, format.text(), format.pieces(), args...);
  return {text.data(), text.size()};
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
/// Second line of logWin32Error: four blanks, "Win32 Error: ", code and system text.
void logSystemError(LogLevel level, std::uint32_t code) noexcept;
[[noreturn]] void logFatalMessage(const std::string& message);
}  // namespace detail

/// Writes the line, then a second one with the thread's last error and the
/// system's text for it. Returns the error that was current at the call, which
/// may be 0 (see failureCode()).
template <typename... Args>
std::uint32_t logWin32Error(LogLevel level, PrintfFormat<std::type_identity_t<Args>...> format,
                            const Args&... args) {
  const std::uint32_t code = lastSystemError();
  logLine<Args...>(level, format, args...);
  detail::logSystemError(level, code);
  return code;
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
  detail::logFatalMessage(message);
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
