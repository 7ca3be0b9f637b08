// Memory that runs out on a thread that logs. Replaces the program's operator new.
#include "log/probe_log.h"
#include "os/system_error.h"
#include "support/failing_new.h"
#include "util/log_win32_error.h"

namespace zarn::testing {
namespace {

thread_local bool memoryIsGone = false;  ///< for operator new on this thread

}  // namespace

bool allocationFails() noexcept {
  return memoryIsGone;
}

namespace {

const std::string kLost = "Log lines that were lost because the queue had no room for them: ";

struct LogWithoutMemory : LogTest {
  LogWithoutMemory() {
    setLogSink(&log_);
    log_.start("Test");
  }
  ~LogWithoutMemory() override { setLogSink(nullptr); }

  const std::string long_ = std::string(2000, 'l');
};

TEST_F(LogWithoutMemory, CostsWhoLogsTheLineAndNothingElse) {
  for (const bool synchronous : {false, true}) {
    log_.setSynchronous(synchronous);
    memoryIsGone = true;
    logLine(LogLevel::Info, "%s", long_);
    log_.submit(LogLevel::Info, long_);
    setLastSystemError(2);
    const auto error = logWin32Error(LogLevel::Info, "%s", long_);
    memoryIsGone = false;
    EXPECT_EQ(error, 2U);
    log_.setSynchronous(false);
    log_.write({"queued"});
  }
  EXPECT_THAT(messages(), ElementsAre(kLost + "3", "queued", kLost + "3", "queued"));
}

TEST_F(LogWithoutMemory, CostsTheWriterTheLineAndNothingElse) {
  log_.whileWriting = [line = 0]() mutable { memoryIsGone = ++line == 2; };
  for (const std::string& line : {std::string("first"), long_, std::string("third")}) log_.write({line});
  // What is counted is the line that would have told of the other.
  EXPECT_THAT(messages(), ElementsAre("first", kLost + "1", "third"));
}

TEST_F(LogWithoutMemory, FatalEndsAllTheSame) {
  for (const bool makesText : {true, false}) {
    expectFatalEnd([&] {
      memoryIsGone = true;
      makesText ? logFatal("%s", long_) : log_.fatal(long_);
    });
  }
}

}  // namespace
}  // namespace zarn::testing
