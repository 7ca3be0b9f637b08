#include "prefs/value_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

namespace zarn {
namespace {

/// from_chars knows no plus sign; one in front is dropped, unless another sign follows.
std::string_view withoutPlus(std::string_view text) noexcept {
  const bool plus = text.size() > 1 && text[0] == '+' && text[1] != '-';
  return plus ? text.substr(1) : text;
}

template <typename T>
std::optional<T> parseWhole(std::string_view text) noexcept {
  T value{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

constexpr char lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool isLetter(char c) noexcept {
  return lower(c) >= 'a' && lower(c) <= 'z';
}

/// from_chars takes the words in every case and with appendices, which is more than is allowed.
bool isAllowedWord(std::string_view text) noexcept {
  constexpr std::array<std::string_view, 5> words = {"nan", "NAN", "infinity", "INFINITY", "inf"};
  return std::find(words.begin(), words.end(), text) != words.end();
}

}  // namespace

std::optional<std::int32_t> parseInt(std::string_view text) noexcept {
  return parseWhole<std::int32_t>(withoutPlus(text));
}

std::optional<double> parseDouble(std::string_view text) noexcept {
  text = withoutPlus(text);
  const std::string_view unsignedText = !text.empty() && text[0] == '-' ? text.substr(1) : text;
  if (!unsignedText.empty() && isLetter(unsignedText[0]) && !isAllowedWord(unsignedText)) return std::nullopt;
  return parseWhole<double>(text);
}

std::string doubleText(double value) {
  std::array<char, 32> buffer{};  // sign, 17 digits, point, "e-308"
  const auto [end, error] =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::general, 17);
  if (error != std::errc()) throw ConversionError("double without text");
  return {buffer.data(), end};
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

}  // namespace zarn
