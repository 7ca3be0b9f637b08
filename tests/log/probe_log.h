// A logger with settable parts, for tests of the machinery.
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "log/base_log.h"
#include "support/temp_directory.h"

namespace zarn::testing {

class ProbeLog final : public BaseLog {
 public:
  explicit ProbeLog(std::string logDirectory) : directory(std::move(logDirectory)) {
    setThreshold(LogLevel::Verbose);
  }
  ~ProbeLog() override { stop(); }

  using BaseLog::startNetworkLog;

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

/// A whole text by an expression that is the same on every platform.
MATCHER_P(Reads, expression, "") {
  return std::regex_match(arg, std::regex(expression));
}

/// The messages of the lines in a log file, what stands before " - " left out.
inline std::vector<std::string> messagesIn(const std::string& path) {
  std::vector<std::string> messages;
  std::ifstream file(FileUtils::toPath(path).c_str());
  for (std::string line; std::getline(file, line);) messages.push_back(line.substr(line.find(" - ") + 3));
  return messages;
}

}  // namespace zarn::testing
