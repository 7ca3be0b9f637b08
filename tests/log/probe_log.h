// A logger with settable parts, for tests of the machinery.
#pragma once

#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "log/base_log.h"
#include "support/temp_directory.h"

namespace zarn::testing {

using Lines = std::vector<std::string>;

class ProbeLog final : public BaseLog {
 public:
  explicit ProbeLog(std::string logDirectory) : directory(std::move(logDirectory)) {
    setThreshold(LogLevel::Verbose);
  }
  ~ProbeLog() override { stop(); }

  using BaseLog::startNetworkLog;

  /// Logs lines and waits until they are written.
  void write(const Lines& lines) {
    for (const std::string& line : lines) submit(LogLevel::Info, line);
    flush();
  }

  std::string directory;
  std::int32_t keptFiles = 5;
  std::function<void()> whileMakingDirectories = [] {};
  std::function<void()> whileWriting = [] {};
  std::function<void()> whenOpened = [] {};

 protected:
  void createLogDirectories() override {
    whileMakingDirectories();
    FileUtils::createDirectories(directory);
  }
  void onLineWritten() override { whileWriting(); }
  std::string logDirectory() override { return directory; }
  std::int32_t rotatedFileCount() override { return keptFiles; }
  std::string accountUserName() override { return "user"; }
  void onFileOpened() override { whenOpened(); }
  void scrubMessage(std::string& message) override { static_cast<void>(message); }
};

/// Compares a whole text with a pattern: # is a digit, ? any character, * any run of them.
inline bool reads(std::string_view text, std::string_view pattern) {
  if (pattern.empty()) return text.empty();
  if (pattern[0] == '*' && reads(text, pattern.substr(1))) return true;
  if (text.empty()) return false;
  if (pattern[0] == '*') return reads(text.substr(1), pattern);
  const bool fits =
      pattern[0] == '#' ? text[0] >= '0' && text[0] <= '9' : pattern[0] == '?' || pattern[0] == text[0];
  return fits && reads(text.substr(1), pattern.substr(1));
}
MATCHER_P(Reads, pattern, "") {
  return reads(arg, pattern);
}

/// The messages of the lines in a log file, what stands before " - " left out.
inline Lines messagesIn(const std::string& path) {
  Lines messages;
  std::ifstream file(FileUtils::toPath(path).c_str());
  for (std::string line; std::getline(file, line);) messages.push_back(line.substr(line.find(" - ") + 3));
  return messages;
}

inline void setEnvironment(const char* name, const std::string& text) {
#ifdef _WIN32
  _putenv_s(name, text.c_str());
#else
  ::setenv(name, text.c_str(), 1);
#endif
}

}  // namespace zarn::testing
