// The fast way to format a log line: most formats need no printf machinery. For
// util/printf_format.h, through which everybody else formats.
//
// A format is plain when each of its conversions is the one that shows its argument
// just as it is, without flags, width, precision and length. What a plain format is made
// of is found out when the program is compiled, so that at run time texts and arguments
// only have to be copied one behind the other.
#pragma once

#include <fmt/printf.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace zarn::detail {

template <typename T, typename... Others>
inline constexpr bool kIsAnyOf = (std::is_same_v<T, Others> || ...);

template <typename T>
inline constexpr bool kIsText = !std::is_arithmetic_v<T> && std::is_convertible_v<const T&, std::string_view>;

/// The conversion that shows a T just as it is; 0 when none does.
template <typename T>
consteval char plainConversion() {
  using U = std::remove_cvref_t<T>;
  if (kIsText<U>) return 's';
  if (kIsAnyOf<U, int, long, long long>) return 'd';
  if (kIsAnyOf<U, unsigned, unsigned long, unsigned long long>) return 'u';
  return kIsAnyOf<U, char> ? 'c' : '\0';
}

/// What a plain format is made of: the lengths of the texts between its conversions,
/// a byte each, the first one lowest.
using FormatPieces = std::uint64_t;
inline constexpr FormatPieces kNotPlain = ~FormatPieces{0};
inline constexpr std::size_t kBitsOfPiece = 8;
inline constexpr FormatPieces kLongestPiece = 0xFE;

template <typename... Args>
consteval FormatPieces formatPieces(std::string_view text) {
  constexpr char wanted[] = {plainConversion<Args>()..., '\0'};
  if (sizeof...(Args) >= sizeof(FormatPieces)) return kNotPlain;
  FormatPieces pieces = 0;
  std::size_t used = 0;
  std::size_t begin = 0;
  for (std::size_t end = 0;; end = begin) {
    end = text.find('%', end);
    const bool isLast = end == text.npos;
    const FormatPieces length = (isLast ? text.size() : end) - begin;
    if (length > kLongestPiece) return kNotPlain;
    pieces |= length << (used * kBitsOfPiece);
    if (isLast) return used == sizeof...(Args) ? pieces : kNotPlain;
    if (end + 1 == text.size() || wanted[used] == '\0' || text[end + 1] != wanted[used]) return kNotPlain;
    ++used;
    begin = end + 2;
  }
}

/// Writes a plain format and its arguments to a place with room for them.
class PlainWriter {
 public:
  PlainWriter(char* place, const char* format, FormatPieces pieces) noexcept
      : end_(place), format_(format), pieces_(pieces) {}

  /// The text before the next conversion, or behind the last one.
  void literal() noexcept {
    std::size_t length = pieces_ & 0xFF;
    pieces_ >>= kBitsOfPiece;
    // In place, since calling memcpy costs more than most literals take.
    constexpr std::size_t word = sizeof(std::uint64_t);
    for (; length >= word; length -= word, end_ += word, format_ += word) std::memcpy(end_, format_, word);
    for (; length > 0; --length) *end_++ = *format_++;
  }
  template <typename T>
  void argument(const T& value) noexcept {
    format_ += 2;  // past its conversion
    if constexpr (std::is_same_v<T, char>) {
      *end_++ = value;
    } else if constexpr (std::is_integral_v<T>) {
      number(value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value),
             value < 0);
    } else {
      text(textOf(value));
    }
  }
  [[nodiscard]] const char* end() const noexcept { return end_; }

  /// No more characters than these are written for a value.
  template <typename T>
  [[nodiscard]] static std::size_t longest(const T& value) noexcept {
    if constexpr (std::is_integral_v<T>) {
      return kMostDigits + 1;
    } else {
      return textOf(value).size();
    }
  }

 private:
  static constexpr std::size_t kMostDigits = 20;

  static std::string_view textOf(std::string_view text) noexcept { return text; }
  static std::string_view textOf(const char* text) noexcept { return text != nullptr ? text : "(null)"; }

  void text(std::string_view text) noexcept;
  void number(std::uint64_t magnitude, bool isNegative) noexcept;

  char* end_;
  const char* format_;
  FormatPieces pieces_;
};

/// Most messages fit into it without memory of their own.
using TextBuffer = fmt::basic_memory_buffer<char, 500>;

/// What is not plain is formatted by the library's printf.
std::string formatWithLibrary(std::string_view format, fmt::printf_args args);

/// Appends the formatted text; `pieces` is what formatPieces() says of the format.
/// Throws fmt::format_error when the format does not fit.
template <typename... Args>
void formatTo(TextBuffer& result, std::string_view format, FormatPieces pieces, const Args&... args) {
  if constexpr (((plainConversion<Args>() != '\0') && ...)) {
    if (pieces != kNotPlain) {
      const std::size_t before = result.size();
      result.resize(before + (format.size() + ... + PlainWriter::longest(args)));
      PlainWriter writer(result.data() + before, format.data(), pieces);
      ((writer.literal(), writer.argument(args)), ...);
      writer.literal();
      result.resize(static_cast<std::size_t>(writer.end() - result.data()));
      return;
    }
  }
  result.append(formatWithLibrary(format, fmt::make_printf_args(args...)));
}

}  // namespace zarn::detail
