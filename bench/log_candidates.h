// The loggers that are compared. Each writes every line to the file by a write of
// its own before it takes up the next one.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zarn::bench {

/// What a line says: its producer (a letter), its number, and a text that fills it.
struct LogMessage {
  char producer;
  int number;
  const std::string& text;
};

class LogCandidate {
 public:
  LogCandidate() = default;
  LogCandidate(const LogCandidate&) = delete;
  LogCandidate& operator=(const LogCandidate&) = delete;
  virtual ~LogCandidate() = default;

  /// Writes "#<producer><number> <text>" behind the logger's own prefix.
  virtual void log(const LogMessage& message) = 0;
  /// Returns when every line is in the file.
  virtual void flush() {}
};

struct LogMaker {
  std::string_view name;
  /// The file or files go into `directory`.
  std::function<std::unique_ptr<LogCandidate>(const std::string& directory)> make;
};

std::unique_ptr<LogCandidate> makeZarnLog(const std::string& directory);
std::unique_ptr<LogCandidate> makeSpdlogAsync(const std::string& directory);
std::unique_ptr<LogCandidate> makeGlog(const std::string& directory);
std::unique_ptr<LogCandidate> makeBoostLogAsync(const std::string& directory);
std::unique_ptr<LogCandidate> makeBoostLogSync(const std::string& directory);
/// No logger: a loop of bare writes of lines made beforehand.
std::unique_ptr<LogCandidate> makeBareWrite(const std::string& directory);

}  // namespace zarn::bench
