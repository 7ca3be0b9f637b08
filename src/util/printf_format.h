// printf formats that are checked against their arguments when the program is compiled.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "util/plain_format.h"

namespace zarn {

namespace detail {

// A call to one of these inside a consteval constructor is a compile error
// whose text is the function's name.
[[noreturn]] void logFormatIsMalformed();
[[noreturn]] void logFormatHasTooFewArguments();
[[noreturn]] void logFormatHasTooManyArguments();
[[noreturn]] void logArgumentDoesNotFitItsConversion();

enum class ArgumentKind : std::uint8_t { Integer, Floating, Text, Other };

template <typename T>
consteval ArgumentKind argumentKind() {
  using U = std::remove_cvref_t<T>;
  if (std::is_integral_v<U>) return ArgumentKind::Integer;
  if (std::is_floating_point_v<U>) return ArgumentKind::Floating;
  return kIsText<U> ? ArgumentKind::Text : ArgumentKind::Other;
}

constexpr bool isOneOf(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

constexpr bool fits(char conversion, ArgumentKind kind) {
  if (isOneOf(conversion, "diuxXoc")) return kind == ArgumentKind::Integer;
  if (isOneOf(conversion, "fFeEgG")) return kind == ArgumentKind::Floating;
  return conversion == 's' && kind == ArgumentKind::Text;
}

}  // namespace detail

/// A format text known only at run time; a mismatch is then a fmt::format_error
/// in the caller of the log call.
struct RuntimeFormat {
  std::string_view text;
};

/// A printf format that fits the argument types Args.
template <typename... Args>
class PrintfFormat {
 public:
  template <typename T>
  requires std::convertible_to<const T&, std::string_view>
  consteval PrintfFormat(const T& text)  // NOLINT(google-explicit-constructor)
      : text_(text), pieces_(detail::formatPieces<Args...>(text_)) {
    check();
  }
  PrintfFormat(RuntimeFormat format) : text_(format.text) {}  // NOLINT(google-explicit-constructor)

  [[nodiscard]] constexpr std::string_view text() const { return text_; }

  [[nodiscard]] constexpr detail::FormatPieces pieces() const { return pieces_; }

 private:
  consteval void check() const {
    constexpr std::size_t count = sizeof...(Args);
    constexpr detail::ArgumentKind kinds[count + 1] = {detail::argumentKind<Args>()...,
                                                       detail::ArgumentKind::Other};
    std::size_t used = 0;
    const auto take = [&](char conversion) {
      if (used >= count) detail::logFormatHasTooFewArguments();
      if (!detail::fits(conversion, kinds[used])) detail::logArgumentDoesNotFitItsConversion();
      ++used;
    };
    for (std::size_t i = 0; i < text_.size(); ++i) {
      if (text_[i] != '%') continue;
      ++i;
      if (i < text_.size() && text_[i] == '%') continue;
      while (i < text_.size() && detail::isOneOf(text_[i], "-+ #0")) ++i;
      if (i < text_.size() && text_[i] == '*') take('d'), ++i;
      while (i < text_.size() && detail::isOneOf(text_[i], "0123456789")) ++i;
      if (i < text_.size() && text_[i] == '.') {
        ++i;
        if (i < text_.size() && text_[i] == '*') take('d'), ++i;
        while (i < text_.size() && detail::isOneOf(text_[i], "0123456789")) ++i;
      }
      while (i < text_.size() && detail::isOneOf(text_[i], "hljztL")) ++i;
      if (i >= text_.size()) detail::logFormatIsMalformed();
      take(text_[i]);
    }
    if (used != count) detail::logFormatHasTooManyArguments();
  }

  std::string_view text_;
  detail::FormatPieces pieces_ = detail::kNotPlain;
};

/// Formats with the printf rules. Throws fmt::format_error on a format that does not fit.
template <typename... Args>
std::string formatPrintf(PrintfFormat<std::type_identity_t<Args>...> format, const Args&... args) {
  detail::TextBuffer text;
  detail::formatTo(text, format.text(), format.pieces(), args...);
  return {text.data(), text.size()};
}

}  // namespace zarn
