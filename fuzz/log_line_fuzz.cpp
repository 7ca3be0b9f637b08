// Outside text in a log line: one record stays one line of bounded length that shows
// its characters in their order, and printable text stays itself.
#include "fuzz.h"
#include "util/printable.h"

namespace {

/// Whether the bytes at `at` are those of a line break or of a control of the text's direction.
bool turnsOrEndsText(const std::string& text, std::size_t at) {
  const std::string mark = text.substr(at, 3);
  for (const auto& [first, last] :
       {std::pair{"\u200E", "\u200F"}, {"\u2028", "\u202E"}, {"\u2066", "\u2069"}})
    if (mark >= first && mark <= last) return true;
  return mark.starts_with("\u061C");
}

std::size_t codePoints(const std::string& text) {
  std::size_t count = 0;
  for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0U) != 0x80U ? 1 : 0;
  return count;
}

}  // namespace

void judge(const std::string& input) {
  // The fuzzer's texts are short: every other one is repeated until it is cut.
  std::string text = input;
  while (text.size() < 2 * zarn::kLongestShownText && input.size() % 2 != 0) text += text;
  const std::string shown = zarn::printable(text);
  for (std::size_t i = 0; i < shown.size(); ++i) {
    const auto byte = static_cast<unsigned char>(shown[i]);
    require(byte >= 0x20 && byte != 0x7f && !turnsOrEndsText(shown, i));
  }
  constexpr std::size_t longestMark = 40;
  require(codePoints(shown) <= zarn::kLongestShownText + longestMark);
  const bool isWhole = codePoints(shown) <= zarn::kLongestShownText;  // nothing is left to escape then
  require(isWhole ? zarn::printable(shown) == shown : shown.ends_with(" characters)"));
  const std::string cut = zarn::cutText(text, zarn::kLongestRecordedText);
  require(cut == text || cut.ends_with(" characters)"));
  require(cut.size() <= 4 * zarn::kLongestRecordedText + longestMark);
}
