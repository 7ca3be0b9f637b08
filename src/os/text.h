// Text at the system's edge: UTF-16 and UTF-8, letters without their case, and numbers.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

#include "os/system_error.h"

namespace zarn::os {

/// Both stop at the first zero character; empty gives empty. UTF-8 that is not valid is
/// refused as a whole; lone surrogates become U+FFFD. Natively a wide character is a
/// code point, and nothing is refused.
[[nodiscard]] Result<std::wstring> wideFromUtf8(std::string_view text);
[[nodiscard]] Result<std::string> utf8FromWide(std::wstring_view text);

/// Of ASCII letters alone, whatever the language of the user.
[[nodiscard]] constexpr char lowerCase(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

[[nodiscard]] constexpr bool isLetter(char c) noexcept {
  return lowerCase(c) >= 'a' && lowerCase(c) <= 'z';
}

/// Whether the texts are the same but for the case of ASCII letters.
[[nodiscard]] constexpr bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lowerCase(x) == lowerCase(y); });
}

/// A text of the program that outlives everything, as a literal does.
template <std::size_t size>
struct FixedText {
  char text[size]{};

  // NOLINTNEXTLINE(google-explicit-constructor): it stands for the literal that it would have been
  constexpr operator std::string_view() const noexcept { return {text, size - 1}; }
};

/// Literals in one, joined when the program is compiled, so that a number that is named
/// in many texts is written once.
template <std::size_t... sizes>
[[nodiscard]] consteval auto joinedLiterals(const char (&... parts)[sizes]) {
  FixedText<(sizes + ...) - sizeof...(sizes) + 1> joined;
  char* end = joined.text;
  ((end = std::copy_n(parts, sizes - 1, end)), ...);
  return joined;
}

/// The number that all of `text` spells, without blanks or a plus sign; a whole one in
/// `base` digits. Nothing when it does not fit into a T.
template <typename T>
[[nodiscard]] std::optional<T> parseNumber(std::string_view text, [[maybe_unused]] int base = 10) noexcept {
  T value{};
  const char* const end = text.data() + text.size();
  std::from_chars_result read{};
  if constexpr (std::is_integral_v<T>) {
    read = std::from_chars(text.data(), end, value, base);
  } else {
    read = std::from_chars(text.data(), end, value);
  }
  if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return value;
}

}  // namespace zarn::os
