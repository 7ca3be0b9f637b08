// What becomes text of a log line: formats, the system's errors, whatever callers say, times; and what
// becomes of structured exceptions.
#include <fmt/format.h>

#include "os/error_text.h"
#include "support/test.h"
#include "util/log_win32_error.h"
#include "util/printable.h"
#include "util/string_utils.h"
#include "util/time_utils.h"
#ifdef _WIN32
#include <windows.h>

#include "util/structured_exception.h"
#endif

namespace zarn::testing {
namespace {

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

std::string escaped(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) text += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
  return text;
}
std::string times(std::size_t count, std::string_view text) {
  std::string result;
  while (count-- > 0) result += text;
  return result;
}

TEST(Printable, KeepsTextAndEscapesWhatCouldForgeALine) {
  // The last are neighbours of what is escaped below.
  for (const std::string kept : {"", R"(C:\Temp\bundle.exe)", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xAC",
                                 "\xE2\x80\x8D\xE2\x80\xB0\xE2\x81\xAA"})
    EXPECT_EQ(printable(kept), kept);
  for (const auto& bytes : {"\r\n"s, "\x1b"s, "\t\x7f"s, "\0"s,
                            "\xC2\x85"s,                           // next line, C1
                            "\xE2\x80\xA8"s,                       // line separator
                            "\xD8\x9C\xE2\x80\x8E\xE2\x80\x8F"s,   // direction marks
                            "\xE2\x80\xAA\xE2\x80\xAE"s,           // embeddings, overrides
                            "\xE2\x81\xA6\xE2\x81\xA9"s,           // isolates
                            "\xC0\xAF\xFF"s,                       // overlong, no lead byte
                            "\xF8\x90\x80\x80"s,                   // a lead byte of six
                            "\xED\xA0\x80"s, "\xF4\x90\x80\x80"s,  // a surrogate, beyond the last code point
                            "\xE2\x82"s}) {                        // cut short
    EXPECT_EQ(printable("a" + bytes), "a" + escaped(bytes));
    EXPECT_EQ(printable(bytes + "[b"), escaped(bytes) + "[b");
  }
}

TEST(Printable, CutsBetweenCharactersAndSaysTheWholeLength) {
  const std::string euro = "\xE2\x82\xAC", turn = "\xE2\x80\xAE";  // twelve characters when it is escaped
  const std::pair<std::string, std::string> cases[] = {
      {times(4096, "a"), times(4096, "a")},
      {times(4097, "a"), times(4096, "a") + "... (4097 characters)"},
      {times(4096, euro), times(4096, euro)},
      {times(4100, euro) + "\xE2", times(4096, euro) + "... (4101 characters)"},
      {times(341, turn) + "aaaa", escaped(times(341, turn)) + "aaaa"},
      {times(342, turn), escaped(times(341, turn)) + "... (342 characters)"},
      {times(1025, "\n"), escaped(times(1024, "\n")) + "... (1025 characters)"},
      {times(1 << 20, "\x80"), escaped(times(1024, "\x80")) + "... (1048576 characters)"}};
  for (const auto& [input, expected] : cases) EXPECT_EQ(printable(input), expected) << expected.size();
  EXPECT_EQ(cutText("a\n" + euro, 3), "a\n" + euro);
  EXPECT_EQ(cutText("a\n" + euro + "\xFF" + euro, 3), "a\n" + euro + "... (5 characters)");
  EXPECT_EQ(cutText("", 0), "");
}

#ifdef _WIN32
TEST(StringUtils, ConvertsBothWaysAndRefusesWhatIsInvalidAsAWhole) {
  const RecordingLog log;
  const std::string beyondBasicPlane = "caf\xC3\xA9 \xF0\x9F\x8E\xAC";
  EXPECT_EQ(StringUtils::utf16to8(StringUtils::utf8to16(beyondBasicPlane)), beyondBasicPlane);
  EXPECT_EQ(StringUtils::utf8to16("ab\0cd"s), L"ab");
  EXPECT_EQ(StringUtils::utf16to8(L"ab\0cd"s), "ab");
  EXPECT_EQ(StringUtils::utf8to16("good \xC3( bad"), L"");
  EXPECT_TRUE(log.contains("utf8to16: MultiByteToWideChar failed: 1113"));
}

TEST(StructuredException, GoesToTheInnermostCallThatWantsIt) {
  static int* volatile nowhere = nullptr;
  const auto isAccessViolation = [](std::uint32_t code) { return code == 0xC0000005; };
  for (const DWORD code : {1722UL, 0xE06D7363UL, 0x80070005UL}) {
    std::uint32_t inner = 1;
    int steps = 0;
    const auto work = [&] {
      inner = callCatching([&] { ++steps, *nowhere = 1; }, isAccessViolation);
      ++steps;
      inner += callCatching([code] { RaiseException(code, 0, 0, nullptr); }, isAccessViolation);
      ++steps;
    };
    EXPECT_EQ(callCatching(work, catchEvery), code);
    EXPECT_TRUE(inner == 0xC0000005 && steps == 2) << inner << " " << steps;
  }
  EXPECT_EQ(callCatching([] {}, catchEvery), 0U);
}

TEST(StructuredException, LeavesCppExceptionsToTheirCatch) {
  const auto object = std::make_shared<int>(7);
  const auto raise = [&] {
    const auto inside = object;
    throw *inside;
  };
  const auto work = [&] {
    const auto outside = object;
    static_cast<void>(callCatching(raise, catchEvery));
  };
  EXPECT_THROW(work(), int);
  EXPECT_EQ(object.use_count(), 1);
}
#endif

TEST(TimeUtils, ATimeThatNoCalendarHasIsNoneAndSaidToBe) {
  const RecordingLog log;
  std::tm fields{};
  EXPECT_FALSE(TimeUtils::epochToLocal(std::int64_t{1} << 50U, fields));
  EXPECT_THAT(log.texts(),
              ElementsAre(HasSubstr("Falling back"), StartsWith("[Time] `boost::posix_time`: ")));
}

TEST(TimeUtils, ValidFields) {
  const auto with = [](int std::tm::*field, int value, int dayOfYear = 100) {
    std::tm fields{};
    fields.tm_mday = 1;
    fields.tm_yday = dayOfYear;
    fields.*field = value;
    return TimeUtils::validFields(fields);
  };
  const std::tuple<int std::tm::*, int, int> limits[] = {
      {&std::tm::tm_sec, 0, 59},   {&std::tm::tm_min, 0, 75},       {&std::tm::tm_hour, 0, 23},
      {&std::tm::tm_mday, 1, 31},  {&std::tm::tm_mon, 0, 11},       {&std::tm::tm_wday, 0, 6},
      {&std::tm::tm_yday, 1, 365}, {&std::tm::tm_year, -1900, 8099}};
  for (const auto& [field, low, high] : limits) {
    EXPECT_TRUE(with(field, low) && with(field, high)) << high;
    EXPECT_FALSE(field != &std::tm::tm_yday && with(field, low - 1)) << low;
    EXPECT_FALSE(field != &std::tm::tm_min && with(field, high + 1)) << high;
  }
  EXPECT_TRUE(with(&std::tm::tm_mday, 1, 0));
  EXPECT_FALSE(with(&std::tm::tm_mday, 2, 0) || with(&std::tm::tm_mon, 1, 0) || with(&std::tm::tm_yday, -1));
}

}  // namespace
}  // namespace zarn::testing
