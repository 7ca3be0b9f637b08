// A logger with settable parts, for tests of the machinery, and what those tests share.
#pragma once

#include <csignal>

#include "log/base_log.h"
#include "log/log_files.h"
#include "support/test.h"

namespace zarn::testing {

struct ProbeLog final : BaseLog {
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
  void createLogDirectories() override {
    whileMakingDirectories();
    FileUtils::createDirectories(directory);
  }
  std::string logDirectory() override {
    whenLookedUp();
    return directory;
  }
  void onLineWritten() override { whileWriting(); }
  std::int32_t rotatedFileCount() override { return keptFiles; }
  std::string accountUserName() override { return "user"; }
  void onFileOpened() override { whenOpened(); }
  void scrubMessage(std::string& message) override { scrub(message); }

  std::string directory;
  std::int32_t keptFiles = 5;
  std::function<void()> whileMakingDirectories = [] {}, whileWriting = whileMakingDirectories,
                        whenOpened = whileMakingDirectories, whenLookedUp = whileMakingDirectories;
  std::function<void(std::string& message)> scrub = [](std::string&) {};
};

/// The messages in file `number` of a log named "Test", without what stands before " - "; of a
/// line that is torn before that all there is.
inline Lines messagesIn(const std::string& directory, std::size_t number = 0) {
  Lines messages;
  std::ifstream file(toPath(LogFiles::path(directory, "Test", number)).c_str());
  for (std::string line; std::getline(file, line);) {
    expectItsLevel(line);
    const std::size_t at = line.find(" - ");
    messages.push_back(at != line.npos ? line.substr(at + 3) : line);
  }
  return messages;
}

/// A logger in a directory of its own.
struct LogTest : ::testing::Test {
  explicit LogTest(const LogLimits& limits = LogLimits()) : log_(dir_.path(), limits) {}
  [[nodiscard]] std::string file(std::size_t number) const {
    return LogFiles::path(dir_.path(), "Test", number);
  }
  [[nodiscard]] Lines messages(std::size_t number = 0) const { return messagesIn(dir_.path(), number); }
  /// `die` ends the process as a fatal error does. The dying process runs the test from its beginning.
  static void expectFatalEnd(const std::function<void()>& die,
                             const ::testing::Matcher<const std::string&>& said = ::testing::_) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
#ifdef _WIN32
    EXPECT_EXIT(die(), ::testing::ExitedWithCode(static_cast<int>(0xC0DEDEAD)), said);
#else
    EXPECT_EXIT(die(), ::testing::KilledBySignal(SIGABRT), said);
#endif
  }

  TempDirectory dir_;
  ProbeLog log_;
};

}  // namespace zarn::testing
