#include "util/printable.h"

#include <gtest/gtest.h>

namespace zarn {
namespace {

TEST(Printable, KeepsTextAndEscapesWhatCouldForgeALine) {
  using namespace std::string_literals;
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {R"(C:\Temp\bundle.exe)", R"(C:\Temp\bundle.exe)"},
      {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xAC", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xAC"},
      {"a\r\nb", R"(a\x0d\x0ab)"},
      {"\x1b[31m\t\x7f", R"(\x1b[31m\x09\x7f)"},
      {"a\0b"s, R"(a\x00b)"},
      {"\xC2\x85", R"(\xc2\x85)"},                  // next line, C1
      {"\xE2\x80\xA8", R"(\xe2\x80\xa8)"},          // line separator
      {"\xC0\xAF\xFF", R"(\xc0\xaf\xff)"},          // overlong, no lead byte
      {"\xED\xA0\x80", R"(\xed\xa0\x80)"},          // surrogate
      {"\xF4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},  // beyond the last code point
      {"x\xE2\x82", R"(x\xe2\x82)"},                // cut short
  };
  for (const auto& [input, expected] : cases) EXPECT_EQ(printable(input), expected);
}

}  // namespace
}  // namespace zarn
