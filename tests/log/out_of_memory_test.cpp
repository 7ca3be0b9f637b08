// Memory that runs out on a thread that logs. Replaces the program's operator new.
#include "log/probe_log.h"
#include "support/failing_new.h"

namespace zarn::testing {
namespace {

thread_local bool memoryIsGone = false;  ///< for operator new on this thread

}  // namespace

bool allocationFails() noexcept {
  return memoryIsGone;
}

namespace {

TEST_F(LogTest, FatalEndsWithoutMemoryAllTheSame) {
  setLogSink(&log_);
  log_.start("Test");
  const std::string text(2000, 'l');
  for (const bool makesText : {true, false}) {
    expectFatalEnd([&] {
      memoryIsGone = true;
      makesText ? logFatal("%s", text) : log_.fatal(text);
    });
  }
  setLogSink(nullptr);
}

}  // namespace
}  // namespace zarn::testing
