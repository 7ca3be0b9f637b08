// The process's standard output and standard error, and who watches them.
#pragma once

#include <string>
#include <string_view>

#include "os/system_error.h"

namespace zarn::tool {

enum class Stream : unsigned char { Output, Error };

/// Writes all of `text`, UTF-8. A stream that the process does not have counts as written.
Result<void> write(Stream stream, std::string_view text);

/// Whether writing failed because whoever read the pipe has seen enough and closed it.
[[nodiscard]] bool isReaderGone(SystemError error) noexcept;

/// Whether somebody watches: the stream is a terminal and not a file or pipe.
[[nodiscard]] bool isTerminal(Stream stream) noexcept;

/// A line on standard error that shows that something is going on.
class ProgressLine {
 public:
  /// False when standard error is not a terminal; then nothing is to be shown.
  [[nodiscard]] bool isWatched() const noexcept { return watched_; }
  /// Writes over the text before, of which nothing is left; the same text again is not
  /// written, nor what the line has no room for. `text` is ASCII.
  void show(std::string_view text);
  /// Takes the line away.
  void clear();

 private:
  bool watched_ = isTerminal(Stream::Error);
  std::string shown_;
};

/// While it lives, Ctrl+C, Ctrl+Break and the closing of the console window write
/// `sentence` to standard error and end the process with ExitCode::Interrupted. Of
/// several the newest speaks; `sentence` is a literal. Nothing is written to standard
/// output meanwhile.
class Interruption {
 public:
  /// From now on an interruption also answers on standard output, with the JSON object of
  /// `command`, a literal. Before the first Interruption.
  static void answerInJson(const char* command) noexcept;

  explicit Interruption(const char* sentence) noexcept;
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  ~Interruption();

 private:
  const char* former_;
};

}  // namespace zarn::tool
