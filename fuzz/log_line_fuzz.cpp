// Outside text in a log line: one record stays one line of bounded length that shows
// its characters in their order, and printable text stays itself.
#include <algorithm>
#include <numeric>

#include "fuzz.h"
#include "util/printable.h"

namespace {

using zarn::fuzz::require;

/// Whether the bytes at `at` are those of a line break or of a control of the text's direction.
bool turnsOrEndsText(std::string_view mark) {
  constexpr std::pair<std::string_view, std::string_view> controls[] = {
      {"\u200E", "\u200F"}, {"\u2028", "\u202E"}, {"\u2066", "\u2069"}, {"\u0080", "\u009F"}};
  return mark.starts_with("\u061C") || std::ranges::any_of(controls, [&](const auto& range) {
           const std::string_view part = mark.substr(0, range.first.size());
           return part.size() == range.first.size() && part >= range.first && part <= range.second;
         });
}

std::size_t codePoints(const std::string& text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

void judgeLogLine(const std::string& input) {
  // The fuzzer's texts are short: one of many is repeated until it is cut.
  const int sum = std::accumulate(input.begin(), input.end(), 0);
  std::string text = input;
  while (text.size() < 2 * zarn::kLongestShownText && sum % 128 == 1) text += text;
  const std::string shown = zarn::printable(text);
  for (std::size_t i = 0; i < shown.size(); ++i) {
    const auto byte = static_cast<unsigned char>(shown[i]);
    require(byte >= 0x20 && byte != 0x7f &&
            (byte < 0x80 || !turnsOrEndsText(std::string_view(shown).substr(i))));
  }
  constexpr std::size_t longestMark = 40;
  require(codePoints(shown) <= zarn::kLongestShownText + longestMark);
  const bool isWhole = codePoints(shown) <= zarn::kLongestShownText;  // nothing is left to escape then
  require(isWhole ? zarn::printable(shown) == shown : shown.ends_with(" characters)"));
  const std::string cut = zarn::cutText(text, zarn::kLongestRecordedText);
  require(cut == text || cut.ends_with(" characters)"));
  require(cut.size() <= 4 * zarn::kLongestRecordedText + longestMark);
}

const zarn::fuzz::Target kLogLine("log_line", judgeLogLine);

}  // namespace
