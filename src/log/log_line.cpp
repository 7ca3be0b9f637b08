#include "log/log_line.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>

#include "os/clock.h"
#include "util/time_utils.h"

namespace zarn {
namespace {

/// A longer line's buffer is given back after it is written.
constexpr std::size_t kKeptLineBytes = 65'536;

constexpr std::size_t kTimeBufferBytes = 32;

/// Decimal, with zeros in front up to `width` digits; a longer number is not cut.
void appendPadded(std::string& text, std::uint32_t number, std::size_t width) {
  const fmt::format_int digits(number);
  if (digits.size() < width) text.append(width - digits.size(), '0');
  text.append(digits.data(), digits.size());
}

}  // namespace

std::string_view logLevelName(LogLevel level) noexcept {
  switch (level) {
    case LogLevel::Error:
      return "ERROR";
    case LogLevel::Warn:
      return "WARN";
    case LogLevel::Info:
      return "INFO";
    case LogLevel::Debug:
      return "DEBUG";
    case LogLevel::Verbose:
      return "VERBOSE";
  }
  return "?";
}

std::tm localCalendarTime(std::int64_t seconds) noexcept {
  std::tm fields{};
  return os::localTime(seconds, fields) ? fields : std::tm{};
}

std::string logTimeText(std::int64_t seconds) {
  // The program sets no locale: the months are the C library's English ones.
  const std::tm fields = localCalendarTime(seconds);
  std::array<char, kTimeBufferBytes> buffer{};
  const std::size_t length = std::strftime(buffer.data(), buffer.size(), "%b %d, %Y %H:%M:%S", &fields);
  return {buffer.data(), length};
}

std::string_view LogLineRenderer::render(const LogItem& item) {
  if (item.time.seconds != renderedSeconds_ || timeText_.empty()) {
    timeText_ = logTimeText(item.time.seconds);
    renderedSeconds_ = item.time.seconds;
  }
  // Clearing keeps the buffer, so that most lines need no memory of their own.
  if (line_.capacity() > kKeptLineBytes) std::string().swap(line_);
  line_.clear();
  line_ += timeText_;
  line_ += '.';
  appendPadded(line_, item.time.milliseconds, 3);
  line_ += " [";
  appendPadded(line_, item.threadId, 4);
  line_ += "] ";
  line_ += logLevelName(item.level);
  line_ += " - ";
  line_ += item.message;
  if (line_.back() != '\n') line_ += '\n';  // an empty message ends in the blank
  return line_;
}

}  // namespace zarn
