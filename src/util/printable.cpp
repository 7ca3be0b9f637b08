#include "util/printable.h"

#include <cstddef>
#include <cstdint>

namespace zarn {
namespace {

/// Length of the valid UTF-8 sequence at the start of `text` and its code point;
/// 0 when there is none.
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

bool isControl(char32_t codePoint) {
  return codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0) || codePoint == 0x2028 ||
         codePoint == 0x2029;
}

}  // namespace

std::string printable(std::string_view text) {
  constexpr char digits[] = "0123456789abcdef";
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    char32_t codePoint = 0;
    const std::size_t length = decodeUtf8(text, codePoint);
    const std::string_view bytes = text.substr(0, length == 0 ? 1 : length);
    if (length != 0 && !isControl(codePoint)) {
      result += bytes;
    } else {
      for (const char c : bytes) {
        const auto value = static_cast<std::uint8_t>(c);
        result += {'\\', 'x', digits[value >> 4U], digits[value & 0xFU]};
      }
    }
    text.remove_prefix(bytes.size());
  }
  return result;
}

}  // namespace zarn
