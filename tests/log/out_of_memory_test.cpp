// Memory that runs out on a thread that logs. Replaces the program's operator new.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log/probe_log.h"
#include "os/system_error.h"
#include "support/failing_new.h"
#include "util/log_win32_error.h"

namespace zarn::testing {
namespace {

/// While it lives, its thread gets no memory from operator new.
class NoMemory {
 public:
  NoMemory() { fails = true; }
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;
  ~NoMemory() { fails = false; }

  inline static thread_local bool fails = false;
};

}  // namespace

bool allocationFails() noexcept {
  return NoMemory::fails;
}

namespace {

using ::testing::ElementsAre;

const std::string kLost = "Log lines that were lost because the queue had no room for them: ";

class LogWithoutMemory : public ::testing::Test {
 protected:
  LogWithoutMemory() {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    setLogSink(&log_);
    log_.start("Test");
  }
  ~LogWithoutMemory() override { setLogSink(nullptr); }

  TempDirectory dir_;
  ProbeLog log_{dir_.path()};
  const std::string long_ = std::string(2000, 'l');
};

TEST_F(LogWithoutMemory, CostsWhoLogsTheLineAndNothingElse) {
  const auto logAll = [this] {
    const NoMemory gone;
    logLine(LogLevel::Info, "%s", long_);
    log_.submit(LogLevel::Info, long_);
    setLastSystemError(2);
    return logWin32Error(LogLevel::Info, "%s", long_);
  };
  EXPECT_EQ(logAll(), 2U);
  log_.write({"queued"});
  log_.setSynchronous(true);
  EXPECT_EQ(logAll(), 2U);
  log_.setSynchronous(false);
  log_.write({"queued"});
  EXPECT_THAT(messagesIn(dir_.path()), ElementsAre(kLost + "3", "queued", kLost + "3", "queued"));
}

TEST_F(LogWithoutMemory, CostsTheWriterTheLineAndNothingElse) {
  log_.whileWriting = [line = 0]() mutable { NoMemory::fails = ++line == 2; };
  log_.write({"first"});
  log_.write({long_});
  log_.write({"third"});
  // What is counted is the line that would have told of the other.
  EXPECT_THAT(messagesIn(dir_.path()), ElementsAre("first", kLost + "1", "third"));
}

TEST_F(LogWithoutMemory, FatalEndsAllTheSame) {
  const auto die = [this](bool makesText) {
    const NoMemory gone;
    if (makesText) logFatal("%s", long_);
    log_.fatal(long_);
  };
  EXPECT_EXIT(die(true), kEndsFatally, "");
  EXPECT_EXIT(die(false), kEndsFatally, "");
}

}  // namespace
}  // namespace zarn::testing
