// Outside text in a log line: one record stays one line of bounded length that shows
// its characters in their order, and printable text stays itself.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "util/printable.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

/// Whether the bytes at `at` are those of a line break or of a control of the text's direction.
bool turnsOrEndsText(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) {
    return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0;
  };
  if (byte(0) == 0xD8) return byte(1) == 0x9C;
  if (byte(0) != 0xE2) return false;
  const bool isMark = byte(1) == 0x80 && (byte(2) == 0x8E || byte(2) == 0x8F);
  const bool isSeparatorOrEmbedding = byte(1) == 0x80 && byte(2) >= 0xA8 && byte(2) <= 0xAE;
  const bool isIsolate = byte(1) == 0x81 && byte(2) >= 0xA6 && byte(2) <= 0xA9;
  return isMark || isSeparatorOrEmbedding || isIsolate;
}

std::size_t codePoints(const std::string& text) {
  std::size_t count = 0;
  for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0U) != 0x80U ? 1 : 0;
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The fuzzer's texts are short: every other one is repeated until it is cut.
  std::string text(reinterpret_cast<const char*>(data), size);
  if (size > 0 && (data[0] & 1U) != 0) {
    while (text.size() < 2 * zarn::kLongestShownText) text += text;
  }
  const std::string shown = zarn::printable(text);
  for (std::size_t i = 0; i < shown.size(); ++i) {
    const auto byte = static_cast<unsigned char>(shown[i]);
    require(byte >= 0x20 && byte != 0x7f && !turnsOrEndsText(shown, i));
  }
  constexpr std::size_t longestMark = 40;
  require(codePoints(shown) <= zarn::kLongestShownText + longestMark);
  if (codePoints(shown) <= zarn::kLongestShownText) {
    require(zarn::printable(shown) == shown);  // nothing is left to escape
  } else {
    require(shown.ends_with(" characters)"));
  }
  const std::string cut = zarn::cutText(text, zarn::kLongestRecordedText);
  require(cut == text || cut.ends_with(" characters)"));
  require(cut.size() <= 4 * zarn::kLongestRecordedText + longestMark);
  return 0;
}
