#include "util/printable.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace zarn {
namespace {

/// Length of the valid UTF-8 sequence at the start of `text` and its code point;
/// 0 when there is none. Overlong forms, surrogates and what lies beyond the last code
/// point count as none: readers of the log may take them for something else.
std::size_t decodeUtf8(std::string_view text, char32_t& codePoint) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t lead = byte(0);
  if (lead < 0x80) {
    codePoint = lead;
    return 1;
  }
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  codePoint = lead & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80U) return 0;
    codePoint = (codePoint << 6U) | (byte(i) & 0x3FU);
  }
  constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  return codePoint >= smallest[length] && codePoint <= 0x10FFFF && !surrogate ? length : 0;
}

/// Those that end a line, that a terminal obeys, or that show what follows in another order.
bool isControl(char32_t codePoint) {
  const auto isIn = [codePoint](char32_t first, char32_t last) {
    return codePoint >= first && codePoint <= last;
  };
  const bool turnsText =
      codePoint == 0x061C || isIn(0x200E, 0x200F) || isIn(0x202A, 0x202E) || isIn(0x2066, 0x2069);
  return codePoint < 0x20 || isIn(0x7F, 0x9F) || isIn(0x2028, 0x2029) || turnsText;
}

struct Character {
  std::string_view bytes;
  bool isPlain = false;  ///< may be shown as it is
};

/// The first character of `text`, which is not empty.
Character firstCharacter(std::string_view text) {
  char32_t codePoint = 0;
  const std::size_t length = decodeUtf8(text, codePoint);
  if (length == 0) return {text.substr(0, 1), false};
  return {text.substr(0, length), !isControl(codePoint)};
}

std::size_t countCharacters(std::string_view text) {
  std::size_t count = 0;
  for (; !text.empty(); ++count) text.remove_prefix(firstCharacter(text).bytes.size());
  return count;
}

std::string cutMark(std::size_t characters) {
  return "... (" + std::to_string(characters) + " characters)";
}

void appendEscaped(std::string& result, std::string_view bytes) {
  constexpr char digits[] = "0123456789abcdef";
  for (const char c : bytes) {
    const auto value = static_cast<std::uint8_t>(c);
    result += {'\\', 'x', digits[value >> 4U], digits[value & 0xFU]};
  }
}

constexpr std::size_t kEscapedByte = 4;  ///< characters of "\x1b"

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(std::min(text.size(), kLongestShownText));
  std::size_t room = kLongestShownText;
  for (std::string_view rest = text; !rest.empty();) {
    // An escaped character counts as what is shown of it, so that the line is bounded, too.
    const Character next = firstCharacter(rest);
    const std::size_t length = next.isPlain ? 1 : kEscapedByte * next.bytes.size();
    if (length > room) return result + cutMark(countCharacters(text));
    room -= length;
    if (next.isPlain) {
      result += next.bytes;
    } else {
      appendEscaped(result, next.bytes);
    }
    rest.remove_prefix(next.bytes.size());
  }
  return result;
}

std::string cutText(std::string_view text, std::size_t characters) {
  std::string_view rest = text;
  for (std::size_t kept = 0; kept < characters && !rest.empty(); ++kept) {
    rest.remove_prefix(firstCharacter(rest).bytes.size());
  }
  std::string result(text.substr(0, text.size() - rest.size()));
  if (!rest.empty()) result += cutMark(countCharacters(rest) + characters);
  return result;
}

}  // namespace zarn
