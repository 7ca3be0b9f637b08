#include "util/logging.h"

#include <gtest/gtest.h>

#include <climits>

#include "support/recording_log.h"

namespace zarn {
namespace {

using testing::RecordingLog;

TEST(Logging, SuppressedLineIsNotFormatted) {
  const RecordingLog log(LogLevel::Info);
  // Formatting this would throw: the format wants an argument.
  EXPECT_NO_THROW(logLine(LogLevel::Debug, RuntimeFormat{"%d"}));
  EXPECT_THROW(logLine(LogLevel::Info, RuntimeFormat{"%d"}), fmt::format_error);
  EXPECT_TRUE(log.lines().empty());
}

TEST(Logging, PrintfConversions) {
  const RecordingLog log;
  logLine(LogLevel::Warn, "%04d|%d|%x|%.1f|%zu|%s|100%%", 7, std::uint32_t{0x800b0100}, 255U, 1.25,
          std::size_t{9}, std::string("text"));
  EXPECT_EQ(log.lines(),
            (std::vector<testing::LoggedLine>{{LogLevel::Warn, "0007|-2146762496|ff|1.2|9|text|100%"}}));
}

template <typename... Args>
void expectAsPrintf(PrintfFormat<std::type_identity_t<Args>...> format, const Args&... args) {
  EXPECT_EQ(format.format(args...), detail::formatPrintf(format.text(), fmt::make_printf_args(args...)));
}

TEST(Logging, PlainConversionsShowWhatPrintfShows) {
  const char* const none = nullptr;
  expectAsPrintf("%%%s%%d|%s|%s|%s|%c%%", "a", std::string("b\0c", 3), std::string_view(), none, 'x');
  expectAsPrintf("%d|%d|%d|%d", INT_MIN, 0, LLONG_MIN, LONG_MAX);
  expectAsPrintf("%u|%u|%s%u", 0U, ULLONG_MAX, "", ULONG_MAX);
  expectAsPrintf("%d|%u|%d", 'x', -1, ULLONG_MAX);
}

TEST(Logging, Win32ErrorReportsTheErrorCurrentAtTheCall) {
  // A sink that disturbs the last error, as writing a file does.
  struct Disturbing final : LogSink {
    std::vector<std::string> texts;
    void submit(LogLevel, std::string message) override {
      texts.push_back(std::move(message));
      setLastSystemError(0);
    }
    void fatal [[noreturn]] (const std::string&) override { std::abort(); }
  } sink;
  LogSink* const former = setLogSink(&sink);
  setLastSystemError(2);
  const std::uint32_t code = logWin32Error(LogLevel::Info, "Opening %s failed", "x");
  setLogSink(former);

  EXPECT_EQ(code, 2U);
  ASSERT_EQ(sink.texts.size(), 2U);
  EXPECT_EQ(sink.texts[0], "Opening x failed");
  EXPECT_EQ(sink.texts[1], "    Win32 Error: 2 " + systemErrorText(2));
  EXPECT_EQ(sink.texts[1].back(), '\n');
}

TEST(Logging, FatalSurvivesAFormatThatDoesNotFit) {
  const RecordingLog log;
  try {
    logFatal(RuntimeFormat{"%d %d"}, 1);
    FAIL();
  } catch (const testing::FatalLogged& fatal) {
    EXPECT_EQ(std::string(fatal.what()).rfind("Log: Error handling format string '%d %d': ", 0), 0U)
        << fatal.what();
  }
}

TEST(Logging, TagsNestAndAreNotRepeated) {
  {
    const LogTag outer("UpdateService");
    const LogTag again("UpdateService");
    const LogTag inner("Install");
    EXPECT_EQ(logTags(), (std::vector<std::string>{"UpdateService", "", "Install"}));
  }
  EXPECT_TRUE(logTags().empty());
}

}  // namespace
}  // namespace zarn
