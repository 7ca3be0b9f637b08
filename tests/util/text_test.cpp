#include <gtest/gtest.h>

#include "support/recording_log.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn::testing {
namespace {

using namespace std::string_literals;

TEST(Printable, KeepsTextAndEscapesWhatCouldForgeALine) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {R"(C:\Temp\bundle.exe)", R"(C:\Temp\bundle.exe)"},
      {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xAC", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xAC"},
      {"a\r\nb", R"(a\x0d\x0ab)"},
      {"\x1b[31m\t\x7f", R"(\x1b[31m\x09\x7f)"},
      {"a\0b"s, R"(a\x00b)"},
      {"\xC2\x85", R"(\xc2\x85)"},                                                  // next line, C1
      {"\xE2\x80\xA8", R"(\xe2\x80\xa8)"},                                          // line separator
      {"\xD8\x9C\xE2\x80\x8E\xE2\x80\x8F", R"(\xd8\x9c\xe2\x80\x8e\xe2\x80\x8f)"},  // direction marks
      {"\xE2\x80\xAA\xE2\x80\xAE", R"(\xe2\x80\xaa\xe2\x80\xae)"},                  // embeddings, overrides
      {"\xE2\x81\xA6\xE2\x81\xA9", R"(\xe2\x81\xa6\xe2\x81\xa9)"},                  // isolates
      {"\xE2\x80\x8D\xE2\x80\xB0\xE2\x81\xAA", "\xE2\x80\x8D\xE2\x80\xB0\xE2\x81\xAA"},  // their neighbours
      {"\xC0\xAF\xFF", R"(\xc0\xaf\xff)"},          // overlong, no lead byte
      {"\xED\xA0\x80", R"(\xed\xa0\x80)"},          // surrogate
      {"\xF4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},  // beyond the last code point
      {"x\xE2\x82", R"(x\xe2\x82)"},                // cut short
  };
  for (const auto& [input, expected] : cases) EXPECT_EQ(printable(input), expected);
}

std::string times(std::size_t count, std::string_view text) {
  std::string result;
  while (count-- > 0) result += text;
  return result;
}

TEST(Printable, CutsBetweenCharactersAndSaysTheWholeLength) {
  const std::string euro = "\xE2\x82\xAC";
  const std::string turn = "\xE2\x80\xAE";  // twelve characters when it is escaped
  const std::string turned = R"(\xe2\x80\xae)";
  const std::pair<std::string, std::string> cases[] = {
      {times(4096, "a"), times(4096, "a")},
      {times(4097, "a"), times(4096, "a") + "... (4097 characters)"},
      {times(4096, euro), times(4096, euro)},
      {times(4100, euro) + "\xE2", times(4096, euro) + "... (4101 characters)"},
      {times(341, turn) + "aaaa", times(341, turned) + "aaaa"},
      {times(342, turn), times(341, turned) + "... (342 characters)"},
      {times(1025, "\n"), times(1024, R"(\x0a)") + "... (1025 characters)"},
      {times(1 << 20, "\x80"), times(1024, R"(\x80)") + "... (1048576 characters)"},
  };
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
#endif

}  // namespace
}  // namespace zarn::testing
