#include "util/logging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "os/error_text.h"
#include "support/recording_log.h"
#include "util/log_win32_error.h"

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;

TEST(Logging, FormatsWhatPassesAndNothingElse) {
  const RecordingLog log(LogLevel::Info);
  // Formatting this would throw: the format wants an argument.
  EXPECT_NO_THROW(logLine(LogLevel::Debug, RuntimeFormat{"%d"}));
  EXPECT_THROW(logLine(LogLevel::Info, RuntimeFormat{"%d"}), fmt::format_error);
  logLine(LogLevel::Warn, "%04d|%d|%x|%.1f|%zu|%s|100%%", 7, std::uint32_t{0x800b0100}, 255U, 1.25,
          std::size_t{9}, std::string("text"));
  logLine(LogLevel::Warn, "%s=%d|%d|%u|%c|a longer piece of text|%s", std::string_view("plain"),
          std::numeric_limits<int>::min(), 0L, std::numeric_limits<unsigned>::max(), 'c',
          static_cast<const char*>(nullptr));
  EXPECT_THAT(log.texts(), ElementsAre("0007|-2146762496|ff|1.2|9|text|100%",
                                       "plain=-2147483648|0|4294967295|c|a longer piece of text|(null)"));
}

TEST(Logging, SystemErrorsAreThoseCurrentAtTheCall) {
  // A sink that disturbs the last error, as writing a file does.
  struct Disturbing final : LogSink {
    std::vector<std::string> texts;
    void submit(LogLevel, std::string_view message) override {
      texts.emplace_back(message);
      setLastSystemError(0);
    }
    void fatal [[noreturn]] (const std::string&) override { std::abort(); }
  } sink;
  LogSink* const former = setLogSink(&sink);
  setLastSystemError(2);
  EXPECT_EQ(logWin32Error(LogLevel::Info, "Opening %s failed", "x"), 2U);
  EXPECT_EQ(logSystemFailure(LogLevel::Info, SystemError(0x800b0100), "Checking failed"), 0x800b0100U);
  setLogSink(former);
  EXPECT_THAT(sink.texts,
              ElementsAre("Opening x failed", "    Win32 Error: 2 " + systemErrorText(2), "Checking failed",
                          "    Win32 Error: -2146762496 " + systemErrorText(0x800b0100)));
}

}  // namespace
}  // namespace zarn::testing
