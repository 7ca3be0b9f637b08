// A logger with settable parts, for tests of the machinery.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <string>
#include <vector>

#include "log/base_log.h"
#include "log/log_files.h"
#include "support/temp_directory.h"

namespace zarn::testing {

#ifdef _WIN32
inline const ::testing::ExitedWithCode kEndsFatally(static_cast<int>(0xC0DEDEAD));
#else
inline const ::testing::KilledBySignal kEndsFatally(SIGABRT);
#endif

using Lines = std::vector<std::string>;

class ProbeLog final : public BaseLog {
 public:
  explicit ProbeLog(std::string logDirectory, const LogLimits& limits = LogLimits())
      : BaseLog(limits), directory(std::move(logDirectory)) {
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
  std::function<void()> whenLookedUp = [] {};
  std::function<void(std::string& message)> scrub = [](std::string&) {};

 protected:
  void createLogDirectories() override {
    whileMakingDirectories();
    FileUtils::createDirectories(directory);
  }
  void onLineWritten() override { whileWriting(); }
  std::string logDirectory() override {
    whenLookedUp();
    return directory;
  }
  std::int32_t rotatedFileCount() override { return keptFiles; }
  std::string accountUserName() override { return "user"; }
  void onFileOpened() override { whenOpened(); }
  void scrubMessage(std::string& message) override { scrub(message); }
};

/// The messages in file `number` of a log named "Test", without what stands before " - ".
inline Lines messagesIn(const std::string& directory, std::size_t number = 0) {
  Lines messages;
  std::ifstream file(FileUtils::toPath(LogFiles::path(directory, "Test", number)).c_str());
  for (std::string line; std::getline(file, line);) messages.push_back(line.substr(line.find(" - ") + 3));
  return messages;
}

}  // namespace zarn::testing
